#include "DesktopViews/ChatterAccessible.h"

#include "DesktopViews/ChatterView.h"

#include <QPointer>
#include <QWindow>

namespace {

/// A row of the list, by its number. It is invalid while the transcript is too short to have that row.
class RowAccessible : public QAccessibleInterface, public QAccessibleActionInterface {
public:
    RowAccessible(ChatterView* view, int row) : view(view), row(row) {}

    bool isValid() const override { return view && row < static_cast<int>(view->rowCount()); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return isValid() ? view->window()->windowHandle() : nullptr; }
    QAccessibleInterface* parent() const override {
        return view ? QAccessible::queryAccessibleInterface(view) : nullptr;
    }
    QAccessibleInterface* child(int) const override { return nullptr; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessible::Role role() const override { return QAccessible::ListItem; }

    QString text(QAccessible::Text kind) const override {
        return isValid() && kind == QAccessible::Name ? view->spokenRow(number()) : QString();
    }
    void setText(QAccessible::Text, const QString&) override {}

    QRect rect() const override {
        if (!isValid()) return {};
        const QRect rect = view->rowRect(number());
        return {view->viewport()->mapToGlobal(rect.topLeft()), rect.size()};
    }

    QAccessible::State state() const override {
        QAccessible::State state;
        if (!isValid()) {
            state.invalid = true;
            return state;
        }
        state.readOnly = true;
        state.focusable = true;
        state.focused = view->hasFocus() && view->currentRow() == number();
        state.offscreen = !view->rowRect(number()).intersects(view->viewport()->rect());
        state.invisible = !view->isVisible();
        return state;
    }

    void* interface_cast(QAccessible::InterfaceType type) override {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this) : nullptr;
    }
    QStringList actionNames() const override { return {pressAction(), setFocusAction()}; }
    void doAction(const QString& name) override {
        if (!isValid()) return;
        if (name == pressAction()) view->openRow(number());
        if (name == setFocusAction()) {
            view->setFocus();
            view->setCurrentRow(number());
        }
    }
    QStringList keyBindingsForAction(const QString&) const override { return {}; }

    int index() const { return row; }

private:
    std::size_t number() const { return static_cast<std::size_t>(row); }

    QPointer<ChatterView> view;
    int row;
};

QAccessibleInterface* make(const QString& className, QObject* object) {
    if (className != QLatin1String("ChatterView")) return nullptr;
    auto* view = qobject_cast<ChatterView*>(object);
    return view != nullptr ? new ChatterAccessible(view) : nullptr;
}

}  // namespace

void ChatterAccessible::install() {
    static const bool isInstalled = [] {
        QAccessible::installFactory(make);
        return true;
    }();
    Q_UNUSED(isInstalled);
}

ChatterAccessible::ChatterAccessible(ChatterView* view) : QAccessibleWidget(view, QAccessible::List) {}

ChatterAccessible::~ChatterAccessible() {
    for (const auto& [row, id] : rows) QAccessible::deleteAccessibleInterface(id);
}

ChatterView* ChatterAccessible::view() const { return static_cast<ChatterView*>(object()); }

int ChatterAccessible::childCount() const { return view() != nullptr ? static_cast<int>(view()->rowCount()) : 0; }

QAccessibleInterface* ChatterAccessible::child(int index) const {
    if (index < 0 || index >= childCount()) return nullptr;
    const auto known = rows.find(index);
    if (known != rows.end()) return QAccessible::accessibleInterface(known->second);
    auto* row = new RowAccessible(view(), index);
    rows.emplace(index, QAccessible::registerAccessibleInterface(row));
    return row;
}

int ChatterAccessible::indexOfChild(const QAccessibleInterface* child) const {
    const auto* row = dynamic_cast<const RowAccessible*>(child);
    return row != nullptr && row->parent() == this ? row->index() : -1;
}

QAccessibleInterface* ChatterAccessible::childAt(int x, int y) const {
    if (view() == nullptr) return nullptr;
    const QPoint point = view()->viewport()->mapFromGlobal(QPoint(x, y));
    if (!view()->viewport()->rect().contains(point)) return nullptr;
    const std::optional<std::size_t> row = view()->rowAt(point.y());
    return row ? child(static_cast<int>(*row)) : nullptr;
}

QAccessibleInterface* ChatterAccessible::focusChild() const {
    if (view() == nullptr || !view()->hasFocus() || !view()->currentRow()) return QAccessibleWidget::focusChild();
    return child(static_cast<int>(*view()->currentRow()));
}

QAccessible::State ChatterAccessible::state() const {
    QAccessible::State state = QAccessibleWidget::state();
    state.readOnly = true;
    return state;
}
