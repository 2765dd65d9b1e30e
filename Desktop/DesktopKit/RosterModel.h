#pragma once

#include "VimbleKit/Person.h"

#include <QAbstractListModel>

#include <string_view>
#include <vector>

/// The people of the list, for the view that shows them: what others have written is made safe to show
/// here, a row at a time as it is asked for.
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
    /// Null for a row that there isn't.
    const Person* personAt(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    /// The display name; for accessibility "Ann, online".
    QVariant data(const QModelIndex& index, int role) const override;

private:
    std::vector<Person> _people;
};
