#include "DesktopKit/RosterModel.h"

#include "TranscriptKit/DisplayText.h"

#include <algorithm>
#include <utility>

void RosterModel::setPeople(std::vector<Person> people) {
    beginResetModel();
    _people = std::move(people);
    endResetModel();
}

int RosterModel::rowOf(std::string_view publicKey) const {
    const auto found = std::find_if(_people.begin(), _people.end(),
                                    [publicKey](const Person& person) { return person.publicKey == publicKey; });
    return found == _people.end() ? -1 : static_cast<int>(found - _people.begin());
}

const Person* RosterModel::personAt(int row) const {
    if (row < 0 || static_cast<std::size_t>(row) >= _people.size()) return nullptr;
    return &_people[static_cast<std::size_t>(row)];
}

int RosterModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(_people.size());
}

QVariant RosterModel::data(const QModelIndex& index, int role) const {
    const Person* person = index.column() == 0 ? personAt(index.row()) : nullptr;
    if (!person) return {};
    switch (role) {
        case Qt::DisplayRole: return DisplayText::person(*person);
        case Qt::AccessibleTextRole:
            return DisplayText::person(*person) + QLatin1String(person->isOnline ? ", online" : ", offline");
        case emojiRole: return DisplayText::name(person->displayEmoji());
        case isOnlineRole: return person->isOnline;
    }
    return {};
}
