#include "DesktopKit/KeyExport.h"

#include "PlatformCore/MemoryFolder.h"
#include "PrintedPage.h"
#include "TestSupport/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QColor>
#include <QLocale>

#include <array>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace PrintedPage;
using testing::HasSubstr;
using testing::Optional;

namespace {

class KeyExportTest : public testing::Test {
protected:
    const Nacl::KeyPair keys = Nacl::keyPair();
    const std::string hex = Nacl::hex(keys.secretKey.view());
    const TemporaryFolder folder;
    const std::filesystem::path file = folder.path / "key.pdf";
};

std::string described(const Host& host, const QLocale& locale) {
    KeyExport page(Nacl::keyPair().secretKey);
    page.describe(host, moment, locale);
    return page.subhead.toStdString();
}

int pages(const std::filesystem::path& file) {
    for (const QString& line : info(file))
        if (line.startsWith(QStringLiteral("Pages:"))) return line.mid(6).trimmed().toInt();
    return 0;
}

TEST_F(KeyExportTest, ThePageSaysWhatItIsAndWhereAndWhenItWasMade) {
    print(exportOf(keys.secretKey), file);
    EXPECT_EQ(text(file).simplified().toStdString(),
              "Vimble Secret Key Exported from Desk (x86_64) on Samstag, 21. November 2026 14:05");
}

TEST_F(KeyExportTest, TheSecretStandsNowhereInTheTextOrTheFile) {
    print(exportOf(keys.secretKey), file);
    QFile pdf(QString::fromStdString(file.native()));
    ASSERT_TRUE(pdf.open(QIODevice::ReadOnly));
    EXPECT_THAT(text(file).toStdString(), testing::Not(HasSubstr(hex)));
    EXPECT_THAT(pdf.readAll().toStdString(), testing::Not(HasSubstr(hex)));
}

TEST_F(KeyExportTest, BeforeItIsDescribedThePageHasAPlaceholder) {
    const KeyExport page(keys.secretKey.duplicate());
    EXPECT_EQ(page.headline.toStdString(), "Vimble Secret Key");
    EXPECT_EQ(page.subhead.toStdString(), "Exported from ... on...");
}

TEST_F(KeyExportTest, TheDateFollowsTheLocale) {
    EXPECT_EQ(described(FakeHost(), QLocale(QLocale::English, QLocale::UnitedStates)),
              "Exported from Desk (x86_64) on Saturday, November 21, 2026 2:05 PM");
    EXPECT_EQ(described(FakeHost(), QLocale(QLocale::French, QLocale::France)),
              "Exported from Desk (x86_64) on samedi 21 novembre 2026 14:05");
}

TEST_F(KeyExportTest, AMachineThatTellsNothingGetsTheFallbacks) {
    FakeHost host;
    host.computer.reset();
    host.hardware.reset();
    EXPECT_THAT(described(host, QLocale::c()), HasSubstr("Exported from Unnamed Mac (Unknown Mac) on "));
}

TEST_F(KeyExportTest, ControlCharactersInTheNameDoNotReachThePage) {
    FakeHost host;
    host.computer = "A\nB\x1b[31m\u202e<b>C</b>";
    EXPECT_THAT(described(host, QLocale::c()), HasSubstr("Exported from A B[31m<b>C</b> (x86_64) on "));
}

TEST_F(KeyExportTest, IsOnePageOnAnyPaperAndIsReadBack) {
    for (const auto id : {QPageSize::A4, QPageSize::Letter, QPageSize::A6, QPageSize::A3, QPageSize::Postcard})
        for (const auto orientation : {QPageLayout::Portrait, QPageLayout::Landscape}) {
            SCOPED_TRACE(QPageSize::name(id).toStdString());
            print(exportOf(keys.secretKey), file, QPageSize(id), orientation);
            EXPECT_EQ(pages(file), 1);
            const QSizeF paper = QPageLayout(QPageSize(id), orientation, {}).fullRect(QPageLayout::Point).size();
            const QImage picture = render(file, 150);
            EXPECT_NEAR(picture.width(), paper.width() / 72 * 150, 2);
            EXPECT_NEAR(picture.height(), paper.height() / 72 * 150, 2);
            EXPECT_THAT(read(picture), Optional(hex));
        }
}

TEST_F(KeyExportTest, OnLargePaperTheCodeMeasures140PointsAndStandsLeft) {
    print(exportOf(keys.secretKey), file);
    const QImage picture = render(file, 360).convertToFormat(QImage::Format_Grayscale8);  // 5 dots a point
    // The code reaches further down than any text; its left and lowest dark dots are those of the page.
    int left = picture.width(), bottom = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if (qGray(picture.pixel(x, y)) < 128) left = std::min(left, x), bottom = y;
    int right = 0;
    for (int x = 0; x < picture.width(); ++x)
        if (qGray(picture.pixel(x, bottom - 3 * 5)) < 128) right = x;
    EXPECT_NEAR(left, 36 * 5, 3);
    int top = bottom;
    while (top > 0 && qGray(picture.pixel(left + 2, top - 3)) < 128) --top;
    // The finder pattern in the lower left corner is 7 of the 37 modules high.
    EXPECT_NEAR(bottom - top, 140 * 5 * 7 / 37, 8);
    EXPECT_GT(right, left + 120 * 5);
    EXPECT_LE(right, left + 140 * 5 + 3);
}

TEST_F(KeyExportTest, TwoHundredRandomKeysAreReadBackAt150DotsAnInch) {
    constexpr int count = 200;
    constexpr int dotsOfInch = 150;
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<std::string> texts;
    QStringList files;
    // Write to memory: each file is synced, and 200 syncs to a busy disk would take most of the test's time.
    const MemoryFolder prints;
    for (int at = 0; at < count; ++at) {
        SecretKey key;
        for (std::uint8_t& byte : key.writable()) byte = static_cast<std::uint8_t>(random());
        texts.push_back(Nacl::hex(key.view()));
        const auto printed = prints.path() / (std::to_string(at) + ".pdf");
        print(exportOf(key), printed);
        files.append(QString::fromStdString(printed.native()));
    }
    // Join the files, so that one process renders them all.
    const QString joined = QString::fromStdString((folder.path / "all.pdf").native());
    const QString pictures = QString::fromStdString((folder.path / "page").native());
    run(QStringLiteral("pdfunite"), files + QStringList(joined));
    // Render only the corner of the sheet that holds the page.
    const QString side = QString::number(6 * dotsOfInch);
    run(QStringLiteral("pdftoppm"), {QStringLiteral("-gray"), QStringLiteral("-r"), QString::number(dotsOfInch),
                                     QStringLiteral("-W"), side, QStringLiteral("-H"), side, joined, pictures});
    for (int at = 0; at < count; ++at) {
        const QImage picture(pictures + QStringLiteral("-%1.pgm").arg(at + 1, 3, 10, QChar(u'0')));
        ASSERT_THAT(read(picture), Optional(texts[static_cast<std::size_t>(at)])) << at;
    }
}

TEST_F(KeyExportTest, IsReadBackAtOtherResolutionsToo) {
    print(exportOf(keys.secretKey), file);
    for (const int dotsOfInch : {72, 96, 300}) EXPECT_THAT(read(render(file, dotsOfInch)), Optional(hex)) << dotsOfInch;
}

TEST_F(KeyExportTest, SmallPaperMakesItSmallerAndWhatIsTakenIsReadBack) {
    // The sizes of labels and cards, in millimetres.
    for (const auto& [width, height] : {std::pair(85, 54), std::pair(62, 100), std::pair(70, 42)}) {
        SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
        print(exportOf(keys.secretKey), file, QPageSize(QSizeF(width, height), QPageSize::Millimeter));
        EXPECT_EQ(pages(file), 1);
        EXPECT_THAT(read(render(file, 150)), Optional(hex));
    }
}

TEST_F(KeyExportTest, PaperOnWhichTheCodeWouldBeTooSmallIsRefusedAndNothingIsWritten) {
    for (const auto& [width, height] : {std::pair(40, 40), std::pair(100, 20), std::pair(20, 200)}) {
        try {
            print(exportOf(keys.secretKey), file, QPageSize(QSizeF(width, height), QPageSize::Millimeter));
            ADD_FAILURE() << width << " x " << height << " was taken";
        } catch (const KeyExportError& error) {
            EXPECT_THAT(error.what(), HasSubstr("too small to be read"));
        }
        EXPECT_FALSE(std::filesystem::exists(file));
    }
}

TEST_F(KeyExportTest, AnEndlessNameStaysOnThePageAndOffTheCode) {
    std::string marks;
    for (int at = 0; at < 200; ++at) marks += "Z\u0351\u036b\u0343\u033e\u0335";
    for (const std::string& name : {std::string(5000, 'W'), std::string("a b ") + std::string(3000, 'i'), marks,
                                    std::string("\u05d0\u05d1 ") + std::string(300, 'x')}) {
        FakeHost host;
        host.computer = name;
        host.hardware = name;
        print(exportOf(keys.secretKey, host), file);
        EXPECT_EQ(pages(file), 1);
        // The name must not push the date off the page: the user tells two papers apart by their dates.
        EXPECT_THAT(text(file).simplified().toStdString(), HasSubstr("21. November 2026 14:05"));
        const QImage picture = render(file, 150);
        EXPECT_THAT(read(picture), Optional(hex));
        const int right = static_cast<int>((36 + 360 + 1) / 72.0 * 150), bottom = right;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                if ((x > right || y > bottom) && qGray(picture.pixel(x, y)) < 255)
                    FAIL() << "ink at " << x << ", " << y << " for " << name.substr(0, 20);
    }
}

}  // namespace
