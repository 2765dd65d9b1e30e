#include "DesktopKit/KeyReplaceVC.h"

#include "DesktopKit/KeyReplaceWindow.h"
#include "TweetNacl/Nacl.h"

#include <QDialogButtonBox>
#include <QVBoxLayout>

#include <optional>
#include <string>

KeyReplaceVC::KeyReplaceVC(KeyReplaceWindow& wc, KeyScanVC* scanVC)
    : QWidget(&wc),
      wc(wc),
      stageBox(new QStackedWidget(this)),
      replaceButton(new QPushButton(QStringLiteral("Replace"), this)),
      cancelButton(new QPushButton(QStringLiteral("Cancel"), this)),
      _sourceVC(new KeySourceVC),
      _scanVC(scanVC) {
    stageBox->setObjectName(QStringLiteral("stageBox"));
    replaceButton->setObjectName(QStringLiteral("replaceButton"));
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    stageBox->addWidget(_sourceVC);
    // A stack is as large as its largest page, and this one is far larger than the first: it joins when it is shown.
    _scanVC->hide();
    _scanVC->setParent(this);
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(replaceButton, QDialogButtonBox::AcceptRole);
    buttons->addButton(cancelButton, QDialogButtonBox::RejectRole);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 16);
    column->setSpacing(18);
    column->addWidget(stageBox, 1);
    column->addWidget(buttons);

    _sourceVC->setDelegate(Weak<KeySourceVCDelegate>(this));
    _scanVC->setDelegate(Weak<KeyScanVCDelegate>(this));
    // The box of buttons has a default of its own.
    replaceButton->setDefault(true);
    connect(replaceButton, &QPushButton::clicked, this, &KeyReplaceVC::replaceHit);
    connect(cancelButton, &QPushButton::clicked, this, &KeyReplaceVC::cancelHit);
    select(_sourceVC);
}

void KeyReplaceVC::select(QWidget* page) {
    stageBox->setCurrentWidget(page);
    page->setFocus();
    wc.adjustSize();
}

void KeyReplaceVC::keySourceChanged(KeySourceVC&) {
    if (_stage != Stage::source) return;
    switch (_sourceVC->source()) {
        case KeySourceVC::Source::generate: replaceButton->setText(QStringLiteral("Replace")); break;
        case KeySourceVC::Source::scan: replaceButton->setText(QStringLiteral("Scan...")); break;
    }
}

void KeyReplaceVC::replaceHit() {
    switch (_stage) {
        case Stage::source:
            switch (_sourceVC->source()) {
                case KeySourceVC::Source::generate: wc.tellGenerate(); break;
                case KeySourceVC::Source::scan: goToScanner(); break;
            }
            break;
        case Stage::scanner: break;
        case Stage::scanned: replaceByScannedKey(); break;
    }
}

void KeyReplaceVC::goToScanner() {
    _stage = Stage::scanner;
    replaceButton->setText(QStringLiteral("Replace"));
    // The page is chosen first, or the keyboard would go from the button to the one that gives up.
    stageBox->addWidget(_scanVC);
    select(_scanVC);
    replaceButton->setEnabled(false);
}

void KeyReplaceVC::keyScanned(KeyScanVC&) {
    _stage = Stage::scanned;
    replaceButton->setEnabled(true);
    replaceButton->setDefault(true);
    // With nothing else to do, Return replaces; whoever types goes on typing, and has Return all the same.
    if (QWidget* focus = wc.focusWidget(); focus == nullptr || focus == cancelButton) replaceButton->setFocus();
}

void KeyReplaceVC::replaceByScannedKey() {
    std::optional<Bytes> key = _scanVC->scannedKey();
    if (!key) return;
    std::string text = Nacl::hex(*key);
    Nacl::wipe(*key);
    wc.tellReplaceWith(text);
    Nacl::wipe(text);
}

void KeyReplaceVC::cancelHit() { wc.tellCancelled(); }
