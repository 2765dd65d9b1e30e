#pragma once

#include <map>

#include <QAccessibleWidget>

class ChatterView;

/// A transcript as a screen reader sees it: a list whose items are the rows. Items are made when they are asked for.
///
/// Owned by Qt's cache of interfaces, as are the items; the destructor removes these from the cache. Main thread.
class ChatterAccessible : public QAccessibleWidget {
public:
    /// Makes Qt use this class for every ChatterView. A second call does nothing.
    static void install();

    explicit ChatterAccessible(ChatterView* view);
    ~ChatterAccessible() override;

    int childCount() const override;
    QAccessibleInterface* child(int index) const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;
    QAccessibleInterface* focusChild() const override;
    QAccessible::State state() const override;

private:
    ChatterView* view() const;

    mutable std::map<int, QAccessible::Id> rows;
};
