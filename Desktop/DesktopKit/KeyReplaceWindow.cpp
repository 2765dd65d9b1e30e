#include "DesktopKit/KeyReplaceWindow.h"

#include "DesktopKit/KeyReplaceVC.h"
#include "DesktopKit/KeyScanVC.h"

#include <QScreen>
#include <QVBoxLayout>

#include <utility>

namespace {

constexpr int frameAllowance = 48;  // for the title and the borders that a window manager adds

}  // namespace

KeyReplaceWindow::KeyReplaceWindow(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera,
                                   QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(QStringLiteral("Replace Secret Key"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    _keyReplaceVC = new KeyReplaceVC(*this, new KeyScanVC(loop, std::move(worker), std::move(camera)));
    column->addWidget(_keyReplaceVC);
    fit();
}

void KeyReplaceWindow::fit() {
    // `adjustSize` would take at most two thirds of the screen.
    const QSize most = screen()->availableSize() - QSize(frameAllowance, frameAllowance);
    resize(sizeHint().boundedTo(most));
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
