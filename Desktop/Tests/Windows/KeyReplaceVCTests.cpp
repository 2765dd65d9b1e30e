#include "DesktopKit/KeyReplaceVC.h"

#include "PrefsFixture.h"

#include <gmock/gmock.h>

#include <QScreen>
#include <QScrollArea>

#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class KeyReplaceVCTest : public testing::Test, public SignalTarget, public KeyReplaceWindowDelegate {
protected:
    KeyReplaceVCTest() {
        sheet.setDelegate(Weak<KeyReplaceWindowDelegate>(this));
        sheet.beginSheet();
        sheet.activateWindow();
        QCoreApplication::processEvents();
    }

    void keyReplaceCancelled(KeyReplaceWindow& window) override { tell("cancelled", window); }
    void keyReplaceGenerate(KeyReplaceWindow& window) override { tell("generate", window); }
    void keyReplaceWith(KeyReplaceWindow& window, std::string_view text) override {
        tell("with " + std::string(text), window);
    }
    void tell(const std::string& what, KeyReplaceWindow& window) {
        EXPECT_EQ(&window, &sheet);
        told.push_back(what);
    }

    KeyReplaceVC& vc() { return sheet.keyReplaceVC(); }
    QPushButton* replaceButton() { return sheet.findChild<QPushButton*>("replaceButton"); }
    QPushButton* cancelButton() { return sheet.findChild<QPushButton*>("cancelButton"); }
    QRadioButton* radio(const char* name) { return sheet.findChild<QRadioButton*>(QLatin1String(name)); }
    std::string label(const char* name) { return sheet.findChild<QLabel*>(QLatin1String(name))->text().toStdString(); }
    void press(Qt::Key key) { QTest::keyClick(sheet.focusWidget() ? sheet.focusWidget() : &sheet, key); }
    void goToScanner() {
        radio("scanRadio")->click();
        replaceButton()->click();
    }
    void scan(const std::string& text) {
        QMimeData data;
        data.setText(QString::fromStdString(text));
        vc().scanVC().take(data);
    }

    TestLoop loop;
    FakeCamera::Remote camera;
    KeyReplaceWindow sheet{loop, std::make_shared<TestWorker>(), std::make_unique<FakeCamera>(camera)};
    std::vector<std::string> told;
};

TEST_F(KeyReplaceVCTest, TheFirstPageSaysWhatItIsToSay) {
    EXPECT_EQ(sheet.windowTitle(), "Replace Secret Key");
    EXPECT_EQ(radio("generateRadio")->text(), "Use Random Key");
    EXPECT_EQ(label("generateCaption"), "Generate a new secret key from scratch");
    EXPECT_EQ(radio("scanRadio")->text(), "Scan Paper Key");
    EXPECT_EQ(label("scanCaption"), "Use your webcam to import a previously exported secret key");
    EXPECT_EQ(replaceButton()->text(), "Replace");
    EXPECT_EQ(cancelButton()->text(), "Cancel");
    EXPECT_TRUE(radio("generateRadio")->isChecked());
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::source);
}

TEST_F(KeyReplaceVCTest, ReturnOnTheFirstPageReplacesAtOnce) {
    press(Qt::Key_Return);
    EXPECT_THAT(told, ElementsAre("generate"));
}

TEST_F(KeyReplaceVCTest, TheButtonsTitleFollowsTheChoice) {
    radio("scanRadio")->click();
    EXPECT_EQ(replaceButton()->text(), "Scan...");
    radio("generateRadio")->click();
    EXPECT_EQ(replaceButton()->text(), "Replace");
    // Choose by keyboard, and by a click on a caption.
    radio("generateRadio")->setFocus();
    press(Qt::Key_Down);
    EXPECT_EQ(replaceButton()->text(), "Scan...");
    QTest::mouseClick(sheet.findChild<QLabel*>("generateCaption"), Qt::LeftButton);
    EXPECT_EQ(replaceButton()->text(), "Replace");
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(KeyReplaceVCTest, ScanGoesToTheScannerWhereThereIsNothingToReplaceYet) {
    radio("scanRadio")->click();
    press(Qt::Key_Return);
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::scanner);
    EXPECT_EQ(replaceButton()->text(), "Replace");
    EXPECT_FALSE(replaceButton()->isEnabled());
    EXPECT_TRUE(vc().scanVC().isVisible());
    EXPECT_FALSE(vc().sourceVC().isVisible());
    EXPECT_TRUE(camera.isRunning());
    press(Qt::Key_Return);
    vc().replaceHit();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(KeyReplaceVCTest, OnAScreenThatIsTooSmallTheButtonsStayInSightAndThePageScrolls) {
    goToScanner();
    auto* scroll = vc().findChild<QScrollArea*>();
    ASSERT_NE(scroll, nullptr);
    // If there is room, nothing is cut off.
    EXPECT_GE(scroll->viewport()->height(), scroll->widget()->sizeHint().height());

    const QFont usual = QApplication::font();
    QFont large = usual;
    large.setPixelSize(64);
    QApplication::setFont(large);
    QCoreApplication::processEvents();
    sheet.fit();
    QCoreApplication::processEvents();
    const QSize available = sheet.screen()->availableSize();
    EXPECT_LE(sheet.height(), available.height());
    EXPECT_LE(sheet.width(), available.width());
    for (QPushButton* button : {replaceButton(), cancelButton()})
        EXPECT_TRUE(sheet.rect().contains(QRect(button->mapTo(&sheet, QPoint()), button->size())));
    EXPECT_GT(scroll->widget()->height(), scroll->viewport()->height());
    // The field that gets the keyboard is scrolled into view.
    auto* field = sheet.findChild<QLineEdit*>("textField");
    vc().scanVC().scannerView().setFocus();
    for (int i = 0; i < 12 && sheet.focusWidget() != field; ++i) press(Qt::Key_Tab);
    ASSERT_EQ(sheet.focusWidget(), field);
    EXPECT_TRUE(scroll->viewport()->rect().contains(field->mapTo(scroll->viewport(), field->rect().center())));
    QApplication::setFont(usual);
}

TEST_F(KeyReplaceVCTest, AGoodKeyMayReplaceAndItsTextIsLowerCase) {
    goToScanner();
    scan(std::string(64, 'A'));
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::scanned);
    EXPECT_TRUE(replaceButton()->isEnabled());
    EXPECT_TRUE(replaceButton()->isDefault());
    replaceButton()->click();
    EXPECT_THAT(told, ElementsAre("with " + std::string(64, 'a')));
}

TEST_F(KeyReplaceVCTest, ATextThatIsTooShortLetsTheScannerGoOn) {
    goToScanner();
    scan(std::string(62, 'a'));
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::scanner);
    EXPECT_FALSE(replaceButton()->isEnabled());
    scan(std::string(64, 'a'));
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::scanned);
}

TEST_F(KeyReplaceVCTest, AChoiceBehindTheFirstPageChangesNothing) {
    goToScanner();
    radio("generateRadio")->setChecked(true);
    radio("scanRadio")->setChecked(true);
    EXPECT_EQ(replaceButton()->text(), "Replace");
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::scanner);
}

TEST_F(KeyReplaceVCTest, CancelIsToldAtEveryStage) {
    cancelButton()->click();
    goToScanner();
    cancelButton()->click();
    scan(std::string(64, 'a'));
    press(Qt::Key_Escape);
    sheet.close();
    EXPECT_THAT(told, ElementsAre("cancelled", "cancelled", "cancelled", "cancelled"));
    EXPECT_EQ(vc().stage(), KeyReplaceVC::Stage::scanned);
}

TEST_F(KeyReplaceVCTest, ReturnOnCancelCancels) {
    cancelButton()->setFocus();
    press(Qt::Key_Return);
    EXPECT_THAT(told, ElementsAre("cancelled"));
}

TEST_F(KeyReplaceVCTest, WithNobodyToTellTheSheetEndsByItself) {
    sheet.setDelegate(nullptr);
    press(Qt::Key_Return);
    EXPECT_TRUE(sheet.isVisible());
    press(Qt::Key_Escape);
    EXPECT_FALSE(sheet.isVisible());
    EXPECT_EQ(camera.starts, 0) << "nobody has asked for the camera";
}

TEST_F(KeyReplaceVCTest, TheCameraStopsWhenTheSheetEnds) {
    goToScanner();
    ASSERT_TRUE(camera.isRunning());
    sheet.endSheet();
    EXPECT_FALSE(camera.isRunning());
}

TEST_F(KeyReplaceVCTest, ACaptionIsTheDescriptionOfItsRadioForAScreenReader) {
    for (const auto& [name, caption] :
         {std::pair("generateRadio", "generateCaption"), std::pair("scanRadio", "scanCaption")}) {
        QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(radio(name));
        EXPECT_EQ(interface->role(), QAccessible::RadioButton);
        EXPECT_EQ(interface->text(QAccessible::Description).toStdString(), label(caption));
    }
}

}  // namespace
