#include "DesktopKit/KeyReplaceVC.h"

#include "DesktopKit/KeyReplaceWindow.h"
#include "TweetNacl/Nacl.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QLayout>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>
#include <string>

namespace {

/// A scroll area that wants as much room as its page, but can be smaller. With less room, the page first shrinks
/// as far as it can, and only then is scrolled. The toolkit's own way of sizing a page would scroll it at once.
class StageScroll : public QScrollArea {
public:
    explicit StageScroll(QStackedWidget* stage) : stage(stage) {
        setFrameShape(QFrame::NoFrame);
        // Show the window's background, and let the keyboard skip this widget.
        viewport()->setAutoFillBackground(false);
        setFocusPolicy(Qt::NoFocus);
        setWidget(stage);
        stage->setAutoFillBackground(false);
        connect(stage, &QStackedWidget::currentChanged, this, [this] { place(); });
    }
    QSize sizeHint() const override { return stage->sizeHint().expandedTo(stage->minimumSizeHint()); }

protected:
    bool event(QEvent* event) override {
        const bool isDone = QScrollArea::event(event);
        if (event->type() == QEvent::LayoutRequest) {
            // The toolkit does not pass on that the size hint of the widget inside has changed.
            updateGeometry();
            place();
        }
        return isDone;
    }
    void resizeEvent(QResizeEvent* event) override {
        QScrollArea::resizeEvent(event);
        place();
    }

private:
    void place() {
        const QWidget* page = stage->currentWidget();
        const QSize room = viewport()->size();
        const int width = std::max(room.width(), page->minimumSizeHint().width());
        stage->resize(width, std::max(room.height(), page->layout()->totalMinimumHeightForWidth(width)));
    }

    QStackedWidget* stage;
};

}  // namespace

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
    // Add the second page only when it is shown: a stack is as large as its largest page, and this one is far larger
    // than the first.
    _scanVC->hide();
    _scanVC->setParent(this);
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(replaceButton, QDialogButtonBox::AcceptRole);
    buttons->addButton(cancelButton, QDialogButtonBox::RejectRole);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 16);
    column->setSpacing(18);
    // On a small screen with large fonts the page is scrolled, and the buttons stay in sight.
    stageScroll = new StageScroll(stageBox);
    column->addWidget(stageScroll, 1);
    column->addWidget(buttons);

    _sourceVC->setDelegate(Weak<KeySourceVCDelegate>(this));
    _scanVC->setDelegate(Weak<KeyScanVCDelegate>(this));
    // Set it here, since the box of buttons makes a default of its own.
    replaceButton->setDefault(true);
    connect(replaceButton, &QPushButton::clicked, this, &KeyReplaceVC::replaceHit);
    connect(cancelButton, &QPushButton::clicked, this, &KeyReplaceVC::cancelHit);
    select(_sourceVC);
}

void KeyReplaceVC::select(QWidget* page) {
    stageBox->setCurrentWidget(page);
    page->setFocus();
    // Make each widget forget its old size hint, from the inside to the outside: the toolkit itself does so only at
    // the loop's next turn.
    stageScroll->updateGeometry();
    updateGeometry();
    wc.fit();
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
    // Select the page before the button is turned off, or the keyboard would go to the cancel button.
    stageBox->addWidget(_scanVC);
    select(_scanVC);
    replaceButton->setEnabled(false);
}

void KeyReplaceVC::keyScanned(KeyScanVC&) {
    _stage = Stage::scanned;
    replaceButton->setEnabled(true);
    replaceButton->setDefault(true);
    // Give the button the keyboard only if nothing else needs it: a user who is typing must be able to go on,
    // and Return presses the default button anyway.
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
