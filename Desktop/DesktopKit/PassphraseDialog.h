#pragma once

#include "PlatformCore/SealedFileStore.h"
#include "TweetNacl/SealedBox.h"

#include <filesystem>
#include <optional>

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

/// Asks for the passphrase of a sealed file; asks twice for a new one.
class PassphraseDialog : public QDialog {
public:
    /// The longest passphrase, in bytes of UTF-8.
    static constexpr int maximumBytes = 1024;

    /// @param wasWrong  an earlier answer did not open the file
    PassphraseDialog(SealedFileStore::Reason reason, const std::filesystem::path& file, bool wasWrong,
                     QWidget* parent = nullptr);

    /// Gives what was typed, and empties the fields.
    Passphrase take();

    /// Opens the dialog and waits for the answer. @return nothing if the user cancelled it
    static std::optional<Passphrase> ask(SealedFileStore::Reason reason, const std::filesystem::path& file,
                                         bool wasWrong);

private:
    void check();

    QLineEdit* passphrase;
    QLineEdit* again = nullptr;  // only for a new passphrase
    QLabel* hint;
    QPushButton* accept;
};
