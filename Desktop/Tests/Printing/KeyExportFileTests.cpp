#include "DesktopKit/KeyExport.h"

#include "PrintedPage.h"
#include "TestSupport/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPrintDialog>
#include <QPushButton>
#include <QTimer>
#include <QWidget>

#include <array>
#include <fstream>
#include <optional>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace PrintedPage;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

namespace fs = std::filesystem;

namespace {

/// Notices every file that is made in a folder, even if it was removed again.
class Watch {
public:
    explicit Watch(const fs::path& folder) : queue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_GE(inotify_add_watch(queue, folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_MODIFY), 0);
    }
    ~Watch() { ::close(queue); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        alignas(inotify_event) std::array<char, 16384> events;
        const ssize_t size = ::read(queue, events.data(), events.size());
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(events.data() + at);
            found.emplace_back(event->len > 0 ? event->name : "");
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return found;
    }

private:
    const int queue;
};

class KeyExportFileTest : public testing::Test {
protected:
    mode_t mode() const {
        struct stat status {};
        EXPECT_EQ(::stat(file.c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    /// Opens the dialog, and returns it as soon as it is on the screen.
    QPrintDialog* openDialog(QWidget& parent) {
        KeyExport(keys.secretKey.duplicate()).print(&parent, FakeHost(), [this](bool isPrinted) {
            outcome = isPrinted;
        });
        return parent.findChild<QPrintDialog*>();
    }
    void chooseFile(QPrintDialog& dialog) {
        auto* name = dialog.findChild<QLineEdit*>(QStringLiteral("filename"));
        ASSERT_NE(name, nullptr);
        EXPECT_TRUE(name->text().endsWith(QStringLiteral("/Vimble Secret Key.pdf"))) << name->text().toStdString();
        name->setText(QString::fromStdString(file.native()));
    }
    static void press(QPrintDialog& dialog) {
        auto* buttons = dialog.findChild<QDialogButtonBox*>();
        ASSERT_NE(buttons, nullptr);
        buttons->button(QDialogButtonBox::Ok)->click();
    }

    const Nacl::KeyPair keys = Nacl::keyPair();
    const std::string hex = Nacl::hex(keys.secretKey.view());
    const TemporaryFolder folder;
    fs::path file = folder.path / "key.pdf";
    std::optional<bool> outcome;
};

TEST_F(KeyExportFileTest, IsForItsOwnerAloneWhateverTheMask) {
    const mode_t before = umask(0);
    print(exportOf(keys.secretKey), file);
    umask(before);
    EXPECT_EQ(mode(), 0600u);
}

TEST_F(KeyExportFileTest, AnOlderFileThatAllMayReadIsReplacedByOneForItsOwner) {
    std::ofstream(file) << "old";
    fs::permissions(file, fs::perms(0644));
    std::ifstream held(file);
    print(exportOf(keys.secretKey), file);
    EXPECT_EQ(mode(), 0600u);
    std::string seen;
    held >> seen;
    EXPECT_EQ(seen, "old");
    EXPECT_THAT(read(render(file, 150)), Optional(hex));
}

TEST_F(KeyExportFileTest, WhatCannotBeWrittenIsToldWithItsName) {
    const fs::path nowhere = folder.path / "gone" / "key.pdf";
    for (const auto& [place, why] : {std::pair(nowhere, "No such file or directory"),
                                     std::pair(folder.path, "Is a directory"), std::pair(fs::path("/dev/full"), "")})
        try {
            print(exportOf(keys.secretKey), place);
            ADD_FAILURE() << place << " was written";
        } catch (const KeyExportError& error) {
            EXPECT_THAT(error.what(), HasSubstr(place.native() + " could not be written: " + why));
        }
}

TEST_F(KeyExportFileTest, NothingIsWrittenButTheFileItself) {
    const TemporaryFolder elsewhere;
    const QByteArray before = qgetenv("TMPDIR");
    qputenv("TMPDIR", elsewhere.path.c_str());
    const Watch temporary(elsewhere.path), home(fs::path(qgetenv("HOME").toStdString())), here(fs::current_path());
    const Watch target(folder.path);
    print(exportOf(keys.secretKey), file);
    before.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", before);
    EXPECT_THAT(temporary.names(), IsEmpty());
    EXPECT_THAT(home.names(), IsEmpty());
    EXPECT_THAT(here.names(), IsEmpty());
    const auto names = target.names();
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.back(), "key.pdf");
    for (const std::string& name : names) EXPECT_TRUE(name == "key.pdf" || name.starts_with(".vimble-")) << name;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), {}), 1);
}

TEST_F(KeyExportFileTest, APrinterThatIsNotThereIsToldAndTheTemporaryFolderIsAsBefore) {
    const TemporaryFolder elsewhere;
    const QByteArray before = qgetenv("TMPDIR");
    qputenv("TMPDIR", elsewhere.path.c_str());
    const Watch temporary(elsewhere.path);
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::NativeFormat);
    printer.setOutputFileName({});
    EXPECT_THROW(exportOf(keys.secretKey).printTo(printer), KeyExportError);
    EXPECT_EQ(qgetenv("TMPDIR").toStdString(), elsewhere.path.native());
    EXPECT_THAT(temporary.names(), IsEmpty());
    before.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", before);
}

TEST_F(KeyExportFileTest, TheDialogBlocksItsWindowAloneAndPrintsWhatIsChosen) {
    QWidget parent;
    parent.show();
    QPrintDialog* dialog = openDialog(parent);
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->windowModality(), Qt::WindowModal);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_EQ(outcome, std::nullopt);
    chooseFile(*dialog);
    press(*dialog);
    EXPECT_EQ(outcome, true);
    EXPECT_EQ(mode(), 0600u);
    EXPECT_THAT(read(render(file, 150)), Optional(hex));
    EXPECT_EQ(parent.findChild<QMessageBox*>(), nullptr);
    // The dialog is destroyed, and with it the page, which shows the key.
    const QPointer<QPrintDialog> gone(dialog);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(gone.isNull());
}

TEST_F(KeyExportFileTest, ACancelledDialogPrintsNothing) {
    QWidget parent;
    parent.show();
    QPrintDialog* dialog = openDialog(parent);
    ASSERT_NE(dialog, nullptr);
    chooseFile(*dialog);
    dialog->reject();
    EXPECT_EQ(outcome, false);
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(KeyExportFileTest, AFailureIsShownAboveTheWindow) {
    QWidget parent;
    parent.show();
    QPrintDialog* dialog = openDialog(parent);
    ASSERT_NE(dialog, nullptr);
    chooseFile(*dialog);
    // Set paper that is too small for the key, and accept the dialog without its own checks.
    dialog->findChild<QLineEdit*>(QStringLiteral("filename"))->blockSignals(true);
    ASSERT_NE(dialog->printer(), nullptr);
    dialog->printer()->setPageSize(QPageSize(QSizeF(20, 20), QPageSize::Millimeter));
    dialog->printer()->setOutputFileName(QString::fromStdString(file.native()));
    dialog->QDialog::done(QDialog::Accepted);
    EXPECT_EQ(outcome, false);
    const auto* box = parent.findChild<QMessageBox*>();
    ASSERT_NE(box, nullptr);
    EXPECT_TRUE(box->isVisible());
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_THAT(box->text().toStdString(), HasSubstr("too small to be read"));
    EXPECT_EQ(box->textFormat(), Qt::PlainText);
}

TEST_F(KeyExportFileTest, AnExistingFileIsAskedAboutAndLeftWhereTheAnswerIsNo) {
    std::ofstream(file) << "old";
    QWidget parent;
    parent.show();
    QPrintDialog* dialog = openDialog(parent);
    ASSERT_NE(dialog, nullptr);
    chooseFile(*dialog);
    std::string question;
    QTimer::singleShot(0, &parent, [&question] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr) return;
        question = box->text().toStdString();
        box->button(QMessageBox::No)->click();
    });
    press(*dialog);
    EXPECT_THAT(question, HasSubstr(file.native() + " already exists"));
    EXPECT_EQ(outcome, std::nullopt);
    EXPECT_EQ(fs::file_size(file), 3u);
}

TEST_F(KeyExportFileTest, AWindowThatDiesTakesTheDialogWithIt) {
    auto parent = std::make_unique<QWidget>();
    parent->show();
    const QPointer<QPrintDialog> dialog(openDialog(*parent));
    ASSERT_FALSE(dialog.isNull());
    parent.reset();
    EXPECT_TRUE(dialog.isNull());
    EXPECT_EQ(outcome, std::nullopt);
}

}  // namespace
