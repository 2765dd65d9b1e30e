#include "DesktopKit/RosterWindow.h"

#include "DesktopKit/AuthVC.h"
#include "VimbleKit/Kit.h"

#include <QMessageBox>
#include <QMouseEvent>
#include <QStackedWidget>
#include <QWindow>

#include <utility>
#include <variant>

namespace {

constexpr QSize contentSize(200, 400);
constexpr QSize leastSize(100, 90);

/// Wants the window's first size, and has no minimum of its own: the window sets it.
class ContentStack : public QStackedWidget {
public:
    using QStackedWidget::QStackedWidget;
    QSize sizeHint() const override { return contentSize; }
    QSize minimumSizeHint() const override { return {1, 1}; }
};

}  // namespace

RosterWindow::LocalState::LocalState(const State* state) : connection(state ? state->connection : Connection::setup) {}

RosterWindow::RosterWindow(Kit& kit)
    : stack(new ContentStack(this)), _rosterVC(new RosterVC(kit, stack)), _authVC(new AuthVC(kit, stack)) {
    setObjectName(QLatin1String(restorationIdentifier));
    setWindowTitle(QStringLiteral("People"));
    setMinimumSize(leastSize);
    stack->addWidget(_authVC);
    stack->addWidget(_rosterVC);
    setCentralWidget(stack);
    resize(contentSize);
    _rosterVC->setDelegate(this);
    kit.observeModel<LocalState>(*this, [](RosterWindow& self, const LocalState& state) { self.apply(state); });
    kit.observeEvents(*this, [](RosterWindow& self, const Event& event) {
        if (std::holds_alternative<Events::AuthorizationFailed>(event)) self.showRefusal();
    });
}

RosterWindow::~RosterWindow() = default;

void RosterWindow::setOpenRoom(std::function<void()> openRoom) { _rosterVC->setOpenRoom(std::move(openRoom)); }

void RosterWindow::showTrouble(const std::string& text) { _rosterVC->showTrouble(text); }

QWidget* RosterWindow::content() const { return stack->currentWidget(); }

void RosterWindow::openConversation(const Person& person) {
    if (delegate) delegate->openConversation(person);
}

void RosterWindow::apply(const LocalState& state) {
    switch (state.connection) {
        case Connection::setup:
            setContent(_authVC);
            // Clear the trouble: it says nothing about the server that is chosen next.
            _rosterVC->showTrouble({});
            return;
        case Connection::online:
        case Connection::offline: setContent(_rosterVC); return;
    }
}

void RosterWindow::setContent(QWidget* wanted) {
    if (stack->currentWidget() == wanted) return;
    stack->setCurrentWidget(wanted);
    wanted->setFocus();
}

void RosterWindow::showRefusal() {
    if (refusal) return;
    if (!isVisible()) {
        isRefusalWaiting = true;
        return;
    }
    isRefusalWaiting = false;
    refusal = new QMessageBox(this);
    refusal->setAttribute(Qt::WA_DeleteOnClose);
    refusal->setIcon(QMessageBox::Warning);
    refusal->setTextFormat(Qt::PlainText);
    refusal->setText(QStringLiteral("Not authorized to connect to the server"));
    refusal->setInformativeText(QStringLiteral(
        "Connecting to the vimble server requires an administrator to add your public key to the list of "
        "authorized users."));
    refusal->setDefaultButton(refusal->addButton(QMessageBox::Ok));
    refusal->open();
}

void RosterWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (isRefusalWaiting) showRefusal();
}

void RosterWindow::hideEvent(QHideEvent* event) {
    QMainWindow::hideEvent(event);
    // A minimised window takes its sheets along, but a window that is hidden would leave them alone on the screen.
    if (event->spontaneous()) return;
    if (refusal) isRefusalWaiting = true;
    // The sheet lives until the loop's next turn, but must not count as open until then.
    refusal.clear();
    for (QDialog* sheet : findChildren<QDialog*>(QString(), Qt::FindDirectChildrenOnly))
        if (sheet->isVisible() && sheet->windowModality() == Qt::WindowModal) sheet->close();
}

void RosterWindow::mousePressEvent(QMouseEvent* event) {
    // On the access screen, the user can drag the window by its background.
    if (content() == _authVC && event->button() == Qt::LeftButton && windowHandle() &&
        windowHandle()->startSystemMove())
        return;
    QMainWindow::mousePressEvent(event);
}
