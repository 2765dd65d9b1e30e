#pragma once

#include "VimbleKit/Person.h"

#include <QAbstractListModel>

#include <string_view>
#include <vector>

/// The people of the list, for the view that shows them. The model makes names and emoji of others safe to
/// show, for one row at a time when the view asks for it.
class RosterModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        emojiRole = Qt::UserRole,  // QString, ready to show
        isOnlineRole,              // bool
    };

    using QAbstractListModel::QAbstractListModel;

    /// Replaces everybody; the views reload whole.
    void setPeople(std::vector<Person> people);
    const std::vector<Person>& people() const { return _people; }

    /// The row of the person with that key, or -1.
    int rowOf(std::string_view publicKey) const;
    /// Null if there is no such row.
    const Person* personAt(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    /// The display name; for accessibility "Ann, online".
    QVariant data(const QModelIndex& index, int role) const override;

private:
    std::vector<Person> _people;
};
