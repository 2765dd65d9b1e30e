#include "DesktopKit/KeyScanVC.h"

#include "DesktopKit/OutcomeBox.h"
#include "DesktopKit/PictureFile.h"
#include "StateKit/WorkerThread.h"
#include "TestSupport/CodeFrame.h"
#include "TestSupport/FakeCamera.h"
#include "TestSupport/TestLoop.h"
#include "TestSupport/TestWorker.h"

#include "PaperKey.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDropEvent>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <chrono>
#include <future>
#include <memory>
#include <string>

namespace {

struct Told final : SignalTarget, KeyScanVCDelegate {
    void keyScanned(KeyScanVC& page) override {
        ++times;
        hadKey = page.scannedKey().has_value();
    }
    int times = 0;
    bool hadKey = false;
};

class KeyScanVCTest : public testing::Test {
protected:
    KeyScanVCTest() {
        make();
        page->show();
        QApplication::processEvents();
    }

    void make() {
        page = std::make_unique<KeyScanVC>(loop, worker, std::make_unique<FakeCamera>(camera));
        page->setDelegate(Weak<KeyScanVCDelegate>(&told));
        page->resize(420, 520);
    }
    template <class Child>
    Child& child(const char* name) const {
        return *page->findChild<Child*>(QLatin1String(name));
    }
    void settle() {
        while (worker->waiting() > 0) {
            worker->step();
            loop.run();
        }
    }
    void see(const std::string& text) {
        camera.send(CodeFrame::of(text));
        settle();
    }
    QString words() const { return child<QLabel>("outcomeLabel").text(); }
    QColor color() const { return child<OutcomeBox>("outcomeBox").color(); }
    bool hasSymbol() const { return !child<QLabel>("outcomeIcon").pixmap(Qt::ReturnByValue).isNull(); }
    QLineEdit& field() const { return child<QLineEdit>("textField"); }
    QString status() const { return child<QLabel>("statusLabel").text(); }

    void expectGood() const {
        EXPECT_EQ(words(), QStringLiteral("Paper key read"));
        EXPECT_EQ(color(), OutcomeBox::green());
        EXPECT_TRUE(hasSymbol());
        EXPECT_EQ(child<QLabel>("outcomeIcon").accessibleName(), QStringLiteral("Paper key read"));
        ASSERT_TRUE(page->scannedKey());
        EXPECT_EQ(Nacl::hex(*page->scannedKey()), PaperKey::text());
        EXPECT_EQ(told.times, 1);
        EXPECT_TRUE(told.hadKey);
        EXPECT_FALSE(camera.isRunning());
        EXPECT_EQ(page->scannerView().scanner()->status(), QRScanner::Status::frozen);
        EXPECT_EQ(field().text(), QString());
        EXPECT_FALSE(field().isEnabled());
    }
    void expectBad() const {
        EXPECT_EQ(words(), QStringLiteral("Not a paper key"));
        EXPECT_EQ(color(), OutcomeBox::red());
        EXPECT_TRUE(hasSymbol());
        EXPECT_EQ(child<QLabel>("outcomeIcon").accessibleName(), QStringLiteral("Not a paper key"));
        EXPECT_FALSE(page->scannedKey());
        EXPECT_EQ(told.times, 0);
        EXPECT_TRUE(camera.isRunning());
    }
    void expectOnlyWords(const QString& part) const {
        EXPECT_TRUE(words().contains(part)) << words().toStdString();
        EXPECT_FALSE(hasSymbol());
        EXPECT_FALSE(page->scannedKey());
        EXPECT_TRUE(camera.isRunning());
    }
    QString save(const QImage& image, const char* name) {
        const QString path = folder.filePath(QLatin1String(name));
        EXPECT_TRUE(image.save(path));
        return path;
    }
    QString save(const QByteArray& bytes, const char* name) {
        QFile file(folder.filePath(QLatin1String(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    }
    void open(const QString& path) {
        page->openImage(path);
        settle();
    }

    QTemporaryDir folder;
    TestLoop loop;
    std::shared_ptr<TestWorker> worker = std::make_shared<TestWorker>();
    FakeCamera::Remote camera;
    Told told;
    std::unique_ptr<KeyScanVC> page;
};

TEST_F(KeyScanVCTest, ScansWhileItIsShown) {
    EXPECT_TRUE(camera.isRunning());
    page->hide();
    EXPECT_FALSE(camera.isRunning());
    page->show();
    EXPECT_TRUE(camera.isRunning());
    page.reset();
    EXPECT_FALSE(camera.isRunning());
}

TEST_F(KeyScanVCTest, AGoodCodeIsGreenAndFreezes) {
    see(PaperKey::text());
    expectGood();
    page->hide();
    page->show();
    EXPECT_FALSE(camera.isRunning());
    EXPECT_TRUE(page->scannerView().scanner()->picture());
}

TEST_F(KeyScanVCTest, AShorterHexadecimalTextIsRedAndScanningGoesOn) {
    see(PaperKey::text().substr(0, 32));
    expectBad();
    see("https://example.org");
    expectBad();
    see(" " + PaperKey::text());
    expectBad();
    see(PaperKey::text() + "00");
    expectBad();
    see(PaperKey::text());
    expectGood();
}

TEST_F(KeyScanVCTest, AnOddLastCharacterPasses) {
    see(PaperKey::text() + "x");
    expectGood();
}

TEST_F(KeyScanVCTest, TypedTextIsJudgedOnceItIsLongEnough) {
    const QString text = QString::fromStdString(PaperKey::text());
    QTest::keyClicks(&field(), text.left(63));
    EXPECT_EQ(words(), QString());
    QTest::keyClicks(&field(), "x");
    expectBad();
    QTest::keyClick(&field(), Qt::Key_Backspace);
    EXPECT_EQ(words(), QString());
    QTest::keyClicks(&field(), text.right(1));
    expectGood();
}

TEST_F(KeyScanVCTest, ReturnJudgesAShortTextToo) {
    QTest::keyClicks(&field(), "abc");
    QTest::keyClick(&field(), Qt::Key_Return);
    expectBad();
}

TEST_F(KeyScanVCTest, BlanksAndLineEndsAreLeftOutOfAPastedText) {
    QString text = QString::fromStdString(PaperKey::text()).toUpper();
    for (int at = 60; at > 0; at -= 4) text.insert(at, QStringLiteral(" \n"));
    QApplication::clipboard()->setText("\n  " + text + "\t\n");
    QTest::keyClick(&field(), Qt::Key_V, Qt::ControlModifier);
    expectGood();
}

TEST_F(KeyScanVCTest, AHugeTextIsCutAndRed) {
    QMimeData data;
    data.setText(QString(10'000'000, QLatin1Char('a')));
    EXPECT_TRUE(page->take(data));
    expectBad();
    EXPECT_LE(field().text().size(), 1024);
}

TEST_F(KeyScanVCTest, TheTextIsHiddenUnlessItIsToBeShown) {
    EXPECT_EQ(field().echoMode(), QLineEdit::Password);
    child<QAbstractButton>("showButton").click();
    EXPECT_EQ(field().echoMode(), QLineEdit::Normal);
    child<QAbstractButton>("showButton").click();
    EXPECT_EQ(field().echoMode(), QLineEdit::Password);
}

TEST_F(KeyScanVCTest, APictureFromAFileIsJudged) {
    open(save(PaperKey::page(3).scaled(100, 60), "small.png"));
    expectOnlyWords(QStringLiteral("No QR code"));
    open(save(PaperKey::page(4), "page.png"));
    expectGood();
}

TEST_F(KeyScanVCTest, APictureWithAnotherCodeIsRed) {
    const SharedFrame frame = CodeFrame::of("hello");
    const QImage image(frame->pixels().data(), 640, 480, 640, QImage::Format_Grayscale8);
    open(save(image, "other.jpg"));
    expectBad();
}

TEST_F(KeyScanVCTest, WhatIsNoPictureIsExplained) {
    open(folder.filePath("missing.png"));
    expectOnlyWords(QStringLiteral("can't be read"));
    open(folder.path());
    expectOnlyWords(QStringLiteral("can't be read"));
    open(QStringLiteral("/dev/zero"));
    expectOnlyWords(QStringLiteral("can't be read"));
    open(save(QByteArray("%PDF-1.4\n..."), "key.pdf"));
    expectOnlyWords(QStringLiteral("PDF"));
    open(save(QByteArray("just words"), "words.png"));
    expectOnlyWords(QStringLiteral("not a picture"));
    open(save(QByteArray(), "empty.png"));
    expectOnlyWords(QStringLiteral("not a picture"));
    open(save(QByteArray("<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>"), "drawing.svg"));
    expectOnlyWords(QStringLiteral("not a picture"));
    QFile whole(save(PaperKey::page(4), "whole.png"));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    open(save(whole.read(whole.size() / 20), "cut.png"));
    EXPECT_FALSE(page->scannedKey());
}

TEST_F(KeyScanVCTest, APictureThatGrowsWhenItIsUnpackedIsRefused) {
    // With one bit a pixel, a hundred million black pixels are compressed to a few kilobytes.
    QImage bomb(10000, 10000, QImage::Format_Mono);
    bomb.fill(0);
    const QString path = save(bomb, "bomb.png");
    EXPECT_LT(QFileInfo(path).size(), 100'000);
    open(path);
    expectOnlyWords(QStringLiteral("too large"));
}

TEST_F(KeyScanVCTest, ADroppedFileIsRead) {
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(save(PaperKey::page(4), "a key.png"))});
    QDragEnterEvent enter(QPoint(9, 9), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(page.get(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(9, 9), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(page.get(), &drop);
    EXPECT_EQ(drop.dropAction(), Qt::CopyAction);
    settle();
    expectGood();
}

TEST_F(KeyScanVCTest, APastedPictureIsReadWhereverTheFocusIs) {
    QApplication::clipboard()->setImage(PaperKey::page(4));
    field().setFocus();
    QTest::keyClick(&field(), Qt::Key_V, Qt::ControlModifier);
    settle();
    expectGood();
}

TEST_F(KeyScanVCTest, AFileOnAnotherMachineIsNotFetched) {
    QMimeData data;
    data.setUrls({QUrl("https://example.org/key.png")});
    EXPECT_TRUE(page->take(data));
    EXPECT_EQ(worker->waiting(), 0U);
    expectOnlyWords(QStringLiteral("another machine"));
}

TEST_F(KeyScanVCTest, APictureThatIsReadTooLateIsDropped) {
    page->openImage(save(PaperKey::page(4), "page.png"));
    page->hide();
    settle();
    EXPECT_FALSE(page->scannedKey());
    page->show();
    page->openImage(folder.filePath("page.png"));
    page->openImage(folder.filePath("missing.png"));
    settle();
    EXPECT_FALSE(page->scannedKey());
    page->openImage(folder.filePath("page.png"));
    page.reset();
    settle();
    EXPECT_EQ(told.times, 0);
}

TEST_F(KeyScanVCTest, APageThatGoesWaitsForNoPictureThatIsBeingRead) {
    const auto thread = std::make_shared<WorkerThread>();
    std::promise<void> diskAnswers;
    page = std::make_unique<KeyScanVC>(loop, thread, std::make_unique<FakeCamera>(camera));
    page->setDelegate(Weak<KeyScanVCDelegate>(&told));
    thread->run([answer = diskAnswers.get_future().share()] { answer.wait(); });
    page->openImage(save(PaperKey::page(4), "page.png"));
    page.reset();
    EXPECT_FALSE(thread->finish(std::chrono::milliseconds(0)));
    diskAnswers.set_value();
    ASSERT_TRUE(thread->finish(std::chrono::minutes(1)));
    loop.run();
    EXPECT_EQ(told.times, 0);
}

TEST_F(KeyScanVCTest, OneKeyIsEnough) {
    see(PaperKey::text());
    QMimeData data;
    data.setText(QString(64, QLatin1Char('0')));
    EXPECT_FALSE(page->take(data));
    page->openImage(save(PaperKey::page(4), "page.png"));
    settle();
    expectGood();
}

TEST_F(KeyScanVCTest, WhatIsWrongWithTheCameraIsSaid) {
    EXPECT_EQ(status(), QStringLiteral("Starting the camera..."));
    camera.fail(CameraTrouble::noCamera);
    EXPECT_EQ(status(), QStringLiteral("No camera found"));
    camera.fail(CameraTrouble::notOpened);
    EXPECT_TRUE(status().contains(QStringLiteral("could not be opened")));
    camera.send(CodeFrame::blank());
    EXPECT_EQ(status(), QString());
    loop.advance(QRScanner::silence);
    EXPECT_TRUE(status().contains(QStringLiteral("no picture")));
    open(save(PaperKey::page(4), "page.png"));
    EXPECT_TRUE(page->scannedKey());
}

TEST_F(KeyScanVCTest, TheLivePictureIsMirroredAndGrey) {
    auto frame = CodeFrame::blank();
    for (int y = 0; y < 480; ++y) std::fill_n(frame->row(y).begin(), 320, std::uint8_t(0));
    camera.send(frame);
    const QImage shown = page->scannerView().grab().toImage();
    EXPECT_GT(qGray(shown.pixel(shown.width() / 4, shown.height() / 2)), 200);
    EXPECT_LT(qGray(shown.pixel(shown.width() * 3 / 4, shown.height() / 2)), 50);
}

TEST_F(KeyScanVCTest, APageFromAFileIsSeenWhole) {
    const QImage code = PaperKey::page(4);
    QImage sheet(code.width(), 3 * code.width(), QImage::Format_Grayscale8);
    sheet.fill(Qt::white);
    QPainter painter(&sheet);
    painter.drawImage(0, 0, code);
    // Draw dark bars at the edges that would be cut off a camera's picture.
    painter.fillRect(0, 0, sheet.width(), sheet.height() / 40, Qt::black);
    painter.fillRect(0, sheet.height() * 39 / 40, sheet.width(), sheet.height() / 40 + 1, Qt::black);
    painter.end();
    open(save(sheet, "sheet.png"));
    expectGood();
    const QImage shown = page->scannerView().grab().toImage();
    const int middle = shown.width() / 2;
    for (const int y : {2, shown.height() - 3}) EXPECT_LT(qGray(shown.pixel(middle, y)), 50) << y;
    EXPECT_GT(qGray(shown.pixel(middle, shown.height() * 3 / 4)), 250);
    // The sheet is not mirrored: its left side is at the left.
    const int sheetWidth = shown.height() / 3;
    const auto darkest = [&](int from, int to) {
        int grey = 255;
        for (int x = from; x < to; ++x)
            for (int y = shown.height() / 20; y < shown.height() / 3; ++y)
                grey = std::min(grey, qGray(shown.pixel(x, y)));
        return grey;
    };
    EXPECT_LT(darkest(middle - sheetWidth / 2 + 2, middle), 150);
    EXPECT_GT(darkest(middle + sheetWidth / 4, middle + sheetWidth / 2 - 2), 200);
}

}  // namespace
