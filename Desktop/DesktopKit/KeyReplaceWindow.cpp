#include "DesktopKit/KeyReplaceWindow.h"

#include "DesktopKit/KeyReplaceVC.h"
#include "DesktopKit/KeyScanVC.h"

#include <QVBoxLayout>

#include <utility>

KeyReplaceWindow::KeyReplaceWindow(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera,
                                   QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(QStringLiteral("Replace Secret Key"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    _keyReplaceVC = new KeyReplaceVC(*this, new KeyScanVC(loop, std::move(worker), std::move(camera)));
    column->addWidget(_keyReplaceVC);
    adjustSize();
}

void KeyReplaceWindow::tellCancelled() {
    if (delegate)
        delegate->keyReplaceCancelled(*this);
    else
        endSheet();
}

void KeyReplaceWindow::tellGenerate() {
    if (delegate) delegate->keyReplaceGenerate(*this);
}

void KeyReplaceWindow::tellReplaceWith(std::string_view secretKeyText) {
    if (delegate) delegate->keyReplaceWith(*this, secretKeyText);
}
