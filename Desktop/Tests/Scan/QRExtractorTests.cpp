#include "ScanKit/QRExtractor.h"

#include "PlatformDesktop/GreyFrames.h"
#include "TestSupport/CodeFrame.h"

#include "PaperKey.h"

#include <gtest/gtest.h>

#include <QTransform>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr unsigned seed = 20240917;

/// The ways in which a camera's picture of a page differs from the page.
struct Distortion {
    double modulePixels = 4;
    double degrees = 0;  // turned in the plane of the picture
    double tilt = 0;     // about the vertical axis, in degrees
    double blur = 0;     // radius (sigma) in pixels
    double black = 0;    // the grey of black paper in the picture
    double white = 255;  // the grey of white paper in the picture
    double noise = 0;    // standard deviation
    double shade = 0;    // how much darker the right edge is, from 0 to 1
};

QImage blurred(const QImage& image, double sigma) {
    const int reach = static_cast<int>(std::ceil(3 * sigma));
    std::vector<double> weights;
    double sum = 0;
    for (int at = -reach; at <= reach; ++at) {
        weights.push_back(std::exp(-at * at / (2 * sigma * sigma)));
        sum += weights.back();
    }
    QImage from = image;
    for (const bool isAcross : {true, false}) {
        QImage to(from.size(), QImage::Format_Grayscale8);
        for (int y = 0; y < from.height(); ++y)
            for (int x = 0; x < from.width(); ++x) {
                double value = 0;
                for (int at = -reach; at <= reach; ++at) {
                    const int fromX = std::clamp(isAcross ? x + at : x, 0, from.width() - 1);
                    const int fromY = std::clamp(isAcross ? y : y + at, 0, from.height() - 1);
                    value += weights[static_cast<std::size_t>(at + reach)] * from.constScanLine(fromY)[fromX];
                }
                to.scanLine(y)[x] = static_cast<uchar>(value / sum);
            }
        from = to;
    }
    return from;
}

/// A frame of 640 x 480 with the page's code in its middle.
SharedFrame seen(const Distortion& how) {
    // Draw the page larger than it is seen, and then make it smaller, as a lens does.
    const double drawn = 8;
    const QImage page = PaperKey::page(drawn);
    QImage image(640, 480, QImage::Format_Grayscale8);
    image.fill(QColor(150, 150, 150));
    {
        QPainter painter(&image);
        painter.setRenderHints(QPainter::SmoothPixmapTransform | QPainter::Antialiasing);
        QTransform view;
        view.translate(320, 240);
        view.rotate(how.tilt, Qt::YAxis);
        view.rotate(how.degrees);
        view.scale(how.modulePixels / drawn, how.modulePixels / drawn);
        const double codeLeft = KeyExport::View::border * drawn * 45 / KeyExport::View::codeSide;
        view.translate(-(codeLeft + 22.5 * drawn), -0.62 * page.height());
        // Draw larger and scale down, to get several samples a pixel: Qt would take one.
        QImage large(1920, 1440, QImage::Format_Grayscale8);
        large.fill(QColor(150, 150, 150));
        QPainter onLarge(&large);
        onLarge.setRenderHints(QPainter::SmoothPixmapTransform);
        onLarge.setTransform(view * QTransform::fromScale(3, 3));
        onLarge.drawImage(0, 0, page);
        onLarge.end();
        painter.drawImage(QRect(0, 0, 640, 480),
                          large.scaled(640, 480, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    }
    if (how.blur > 0) image = blurred(image, how.blur);
    auto frame = std::make_shared<GreyFrame>(640, 480);
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0, std::max(how.noise, 1e-9));
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x) {
            double value = how.black + image.constScanLine(y)[x] / 255.0 * (how.white - how.black);
            value *= 1 - how.shade * x / 640;
            value += noise(random);
            frame->row(y)[static_cast<std::size_t>(x)] = static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
        }
    return frame;
}

bool isRead(const SharedFrame& frame) {
    return QRExtractor::payload(*frame, QRExtractor::Effort::live) == PaperKey::text();
}

/// Tries the degrees from easy to hard, prints which are read, and returns the last one before the first failure.
double lastRead(const char* name, const std::vector<double>& degrees,
                const std::function<Distortion(double)>& distortion) {
    std::printf("%-34s", name);
    double last = -1;
    bool isWhole = true;
    for (const double degree : degrees) {
        const bool wasRead = isRead(seen(distortion(degree)));
        std::printf(" %g%s", degree, wasRead ? "" : "(-)");
        isWhole = isWhole && wasRead;
        if (isWhole) last = degree;
    }
    std::printf("\n");
    return last;
}

class QRExtractorTest : public testing::Test {
protected:
    static void SetUpTestSuite() { std::printf("noise has the seed %u; (-) was not read\n", seed); }
};

TEST_F(QRExtractorTest, ReadsAPaperKeyTurnedByAnyAngle) {
    for (int degrees = 0; degrees < 360; degrees += 15) {
        Distortion how;
        how.degrees = degrees;
        EXPECT_TRUE(isRead(seen(how))) << degrees;
    }
}

TEST_F(QRExtractorTest, ReadsAPaperKeyThatIsDistorted) {
    EXPECT_GE(lastRead("pixels a module (less than 0)", {-8, -6, -5, -4, -3, -2.5, -2, -1.7, -1.5, -1.3, -1.1},
                       [](double pixels) { return Distortion{.modulePixels = -pixels}; }),
              -2);
    EXPECT_GE(lastRead("degrees tilted", {0, 10, 20, 30, 40, 50, 60, 70},
                       [](double tilt) { return Distortion{.tilt = tilt}; }),
              20);
    EXPECT_GE(lastRead("blur, radius in modules", {0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8},
                       [](double blur) { return Distortion{.blur = 4 * blur}; }),
              0.3);
    EXPECT_GE(lastRead("dark: white at 255 less", {0, 100, 150, 180, 200, 220, 230, 240},
                       [](double less) { return Distortion{.black = 5, .white = 255 - less}; }),
              150);
    EXPECT_GE(lastRead("low contrast: black and white at 128 -+", {-120, -60, -40, -25, -15, -10, -5},
                       [](double half) { return Distortion{.black = 128 + half, .white = 128 - half}; }),
              -60);
    EXPECT_GE(lastRead("noise, of 255", {0, 10, 20, 30, 40, 50, 60, 80},
                       [](double noise) { return Distortion{.noise = noise}; }),
              20);
    EXPECT_GE(lastRead("shade over the width", {0, 0.2, 0.4, 0.6, 0.8, 0.9},
                       [](double shade) { return Distortion{.shade = shade}; }),
              0.4);
    EXPECT_GE(lastRead("all at once, degrees of it", {0, 1, 2, 3, 4, 5},
                       [](double degree) {
                           return Distortion{.modulePixels = 4,
                                             .degrees = 23 * degree,
                                             .tilt = 8 * degree,
                                             .blur = 0.25 * degree,
                                             .black = 10 * degree,
                                             .white = 255 - 25 * degree,
                                             .noise = 3 * degree,
                                             .shade = 0.1 * degree};
                       }),
              1);
}

TEST_F(QRExtractorTest, ReadsACodeThatIsMirrored) {
    const SharedFrame straight = CodeFrame::of(PaperKey::text());
    auto mirrored = std::make_shared<GreyFrame>(640, 480);
    for (int y = 0; y < 480; ++y) std::ranges::reverse_copy(straight->row(y), mirrored->row(y).begin());
    EXPECT_TRUE(isRead(mirrored));
}

TEST_F(QRExtractorTest, GivesOneOfTwoCodesAndAlwaysTheSame) {
    auto frame = CodeFrame::blank();
    CodeFrame::draw(*frame, "first", 60, 180, 5);
    CodeFrame::draw(*frame, "other", 400, 180, 5);
    const auto found = QRExtractor::payload(*frame, QRExtractor::Effort::live);
    ASSERT_TRUE(found);
    EXPECT_TRUE(found == "first" || found == "other");
    for (int time = 0; time < 5; ++time) EXPECT_EQ(QRExtractor::payload(*frame, QRExtractor::Effort::live), found);
}

TEST_F(QRExtractorTest, GivesBytesAsTheyAre) {
    const std::string bytes("\0\xff\x80\xc3(\n", 6);
    EXPECT_EQ(QRExtractor::payload(*CodeFrame::of(bytes), QRExtractor::Effort::live), bytes);
}

TEST_F(QRExtractorTest, FindsNothingWhereThereIsNothing) {
    for (const auto effort : {QRExtractor::Effort::live, QRExtractor::Effort::thorough}) {
        EXPECT_FALSE(QRExtractor::payload(*CodeFrame::blank(), effort));
        EXPECT_FALSE(QRExtractor::payload(GreyFrame(1, 1), effort));
        EXPECT_FALSE(QRExtractor::payload(GreyFrame(3, 2000), effort));
        GreyFrame noise(640, 480);
        std::mt19937 random(seed);
        for (int y = 0; y < 480; ++y)
            for (auto& pixel : noise.row(y)) pixel = static_cast<std::uint8_t>(random());
        EXPECT_FALSE(QRExtractor::payload(noise, effort));
    }
}

TEST_F(QRExtractorTest, FindsALargeCodeInAPhoto) {
    auto photo = CodeFrame::blank(4000, 3000);
    CodeFrame::draw(*photo, PaperKey::text(), 1200, 700, 40);
    EXPECT_EQ(QRExtractor::payload(*photo, QRExtractor::Effort::thorough), PaperKey::text());
}

}  // namespace
