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

/// Wants as much room as the pages of a stage, and can do with little: a page that shrinks does so, then it is
/// scrolled. The toolkit's own way of giving a page its size would scroll it at once.
class StageScroll : public QScrollArea {
public:
    explicit StageScroll(QStackedWidget* stage) : stage(stage) {
        setFrameShape(QFrame::NoFrame);
        // It shows the window's ground, and the keyboard passes it by.
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
            // The toolkit passes on nothing of what the widget within wants anew.
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
    // A stack is as large as its largest page, and this one is far larger than the first: it joins when it is shown.
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
    // The box of buttons has a default of its own.
    replaceButton->setDefault(true);
    connect(replaceButton, &QPushButton::clicked, this, &KeyReplaceVC::replaceHit);
    connect(cancelButton, &QPushButton::clicked, this, &KeyReplaceVC::cancelHit);
    select(_sourceVC);
}

void KeyReplaceVC::select(QWidget* page) {
    stageBox->setCurrentWidget(page);
    page->setFocus();
    // Each forgets what it wanted, from within to without; of itself the toolkit does that a turn of the loop later.
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
