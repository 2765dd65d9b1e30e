#include "DesktopKit/PassphraseDialog.h"

#include "QtText/QtText.h"
#include "TranscriptKit/DisplayText.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QVBoxLayout>

#include <string>
#include <utility>

namespace {

QLabel* plainLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setText(text);
    return label;
}

QLineEdit* hiddenField(const QString& name, QWidget* parent) {
    auto* field = new QLineEdit(parent);
    field->setEchoMode(QLineEdit::Password);
    field->setInputMethodHints(Qt::ImhSensitiveData | Qt::ImhNoPredictiveText | Qt::ImhNoAutoUppercase);
    field->setAccessibleName(name);
    field->setMinimumWidth(260);
    return field;
}

}  // namespace

PassphraseDialog::PassphraseDialog(SealedFileStore::Reason reason, const std::filesystem::path& file, bool wasWrong,
                                   QWidget* parent)
    : QDialog(parent), passphrase(hiddenField(tr("Passphrase"), this)), hint(plainLabel({}, this)) {
    const bool isNew = reason == SealedFileStore::Reason::newFile;
    setWindowTitle(isNew ? tr("Choose a Passphrase") : tr("Passphrase"));
    auto* layout = new QVBoxLayout(this);
    const QString path = DisplayText::line(file.string());
    layout->addWidget(plainLabel(isNew ? tr("Your secret key is going to be kept in the file %1, sealed with a "
                                            "passphrase that you choose now. Nobody can open it without.")
                                             .arg(path)
                                       : tr("Your secret key is in the file %1. What is its passphrase?").arg(path),
                                 this));
    auto* form = new QFormLayout;
    form->addRow(tr("&Passphrase:"), passphrase);
    if (isNew) {
        again = hiddenField(tr("Passphrase, once more"), this);
        form->addRow(tr("&Once more:"), again);
        connect(again, &QLineEdit::textChanged, this, &PassphraseDialog::check);
    }
    layout->addLayout(form);
    if (wasWrong) hint->setText(tr("That was not the passphrase."));
    layout->addWidget(hint);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    accept = buttons->button(QDialogButtonBox::Ok);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(passphrase, &QLineEdit::textChanged, this, &PassphraseDialog::check);
    accept->setEnabled(false);
    passphrase->setFocus();
}

void PassphraseDialog::check() {
    const bool isThere = !passphrase->text().isEmpty();
    const bool isShort = passphrase->text().toUtf8().size() <= maximumBytes;
    const bool isSame = again == nullptr || passphrase->text() == again->text();
    accept->setEnabled(isThere && isShort && isSame);
    if (!isShort)
        hint->setText(tr("A passphrase is at most %1 bytes long.").arg(maximumBytes));
    else if (!isSame && !again->text().isEmpty())
        hint->setText(tr("The two differ."));
    else
        hint->clear();
}

Passphrase PassphraseDialog::take() {
    std::string text = fromQt(passphrase->text());
    // The toolkit has kept copies of the text. Overwrite what can be overwritten.
    const QString nothing(passphrase->text().size(), QChar(u' '));
    passphrase->setText(nothing);
    passphrase->clear();
    if (again != nullptr) {
        again->setText(nothing);
        again->clear();
    }
    return Passphrase(std::move(text));
}

std::optional<Passphrase> PassphraseDialog::ask(SealedFileStore::Reason reason, const std::filesystem::path& file,
                                                bool wasWrong) {
    PassphraseDialog dialog(reason, file, wasWrong);
    if (dialog.exec() != QDialog::Accepted) return std::nullopt;
    return dialog.take();
}
