#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

/// A map in key order whose copies share their entries.
///
/// Copying costs the same at any size. A change copies one chunk of at most 32 entries (pointers to
/// them, not the entries) and the list of chunks, and leaves every other copy as it was. Comparing
/// with an unchanged copy is one pointer comparison, and chunks that two copies share are skipped.
///
/// References to values hold until the map that they were taken from changes or dies.
template <class Key, class Value>
class SharedMap {
    using Entry = std::pair<const Key, Value>;
    using Chunk = std::vector<std::shared_ptr<const Entry>>;  // never empty
    using Spine = std::vector<std::shared_ptr<const Chunk>>;
    static constexpr std::size_t chunkLimit = 32;

public:
    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using pointer = const Entry*;
        using reference = const Entry&;

        const_iterator() = default;
        const_iterator(const Spine* spine, std::size_t chunk, std::size_t index)
            : spine(spine), chunk(chunk), index(index) {}

        reference operator*() const { return *(*(*spine)[chunk])[index]; }
        pointer operator->() const { return &**this; }
        const_iterator& operator++() {
            if (++index == (*spine)[chunk]->size()) {
                ++chunk;
                index = 0;
            }
            return *this;
        }
        const_iterator operator++(int) {
            auto before = *this;
            ++*this;
            return before;
        }
        bool operator==(const const_iterator& other) const { return chunk == other.chunk && index == other.index; }

    private:
        const Spine* spine = nullptr;
        std::size_t chunk = 0;
        std::size_t index = 0;
    };

    SharedMap() = default;
    SharedMap(std::initializer_list<Entry> entries) {
        for (const Entry& entry : entries) set(entry.first, entry.second);
    }

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    const_iterator begin() const { return {spine.get(), 0, 0}; }
    const_iterator end() const { return {spine.get(), spine ? spine->size() : 0, 0}; }

    /// The value, or null if there is none.
    template <class Wanted>
    const Value* find(const Wanted& key) const {
        const Place place = locate(key);
        return place.isThere ? &(*(*spine)[place.chunk])[place.index]->second : nullptr;
    }
    template <class Wanted>
    bool contains(const Wanted& key) const {
        return find(key) != nullptr;
    }

    void set(const Key& key, Value value) { put(locate(key), std::make_shared<const Entry>(key, std::move(value))); }

    /// Lets `change` edit a copy of the value, or of `Value()` if there is none, and stores it under the key.
    template <class Change>
    void update(const Key& key, Change&& change) {
        const Place place = locate(key);
        auto entry =
            std::make_shared<Entry>(key, place.isThere ? (*(*spine)[place.chunk])[place.index]->second : Value());
        change(entry->second);
        put(place, std::move(entry));
    }

    /// The same, but does nothing if there is no such key. @return whether there was one
    template <class Change>
    bool updateExisting(const Key& key, Change&& change) {
        if (!contains(key)) return false;
        update(key, std::forward<Change>(change));
        return true;
    }

    /// @return whether there was such a key
    template <class Wanted>
    bool erase(const Wanted& key) {
        const Place place = locate(key);
        if (!place.isThere) return false;
        auto newSpine = std::make_shared<Spine>(*spine);
        auto chunk = std::make_shared<Chunk>(*(*spine)[place.chunk]);
        chunk->erase(chunk->begin() + static_cast<std::ptrdiff_t>(place.index));
        const auto at = newSpine->begin() + static_cast<std::ptrdiff_t>(place.chunk);
        if (chunk->empty())
            newSpine->erase(at);
        else
            *at = std::move(chunk);
        spine = newSpine->empty() ? nullptr : std::move(newSpine);
        --count;
        return true;
    }

    bool operator==(const SharedMap& other) const {
        if (spine == other.spine) return true;
        if (count != other.count) return false;
        Cursor ours{spine.get()}, theirs{other.spine.get()};
        while (!ours.isAtEnd()) {
            if (ours.index == 0 && theirs.index == 0 && ours.chunk() == theirs.chunk()) {
                ours.nextChunk();
                theirs.nextChunk();
                continue;
            }
            const auto& a = ours.entry();
            const auto& b = theirs.entry();
            if (a != b && !(*a == *b)) return false;
            ours.next();
            theirs.next();
        }
        return true;
    }

private:
    /// Where a key is, or where it belongs.
    struct Place {
        std::size_t chunk = 0;
        std::size_t index = 0;
        bool isThere = false;
    };

    /// Walks the entries, and can skip a whole chunk.
    struct Cursor {
        const Spine* spine;
        std::size_t at = 0;
        std::size_t index = 0;

        bool isAtEnd() const { return !spine || at == spine->size(); }
        const std::shared_ptr<const Chunk>& chunk() const { return (*spine)[at]; }
        const std::shared_ptr<const Entry>& entry() const { return (*chunk())[index]; }
        void nextChunk() {
            ++at;
            index = 0;
        }
        void next() {
            if (++index == chunk()->size()) nextChunk();
        }
    };

    template <class Wanted>
    Place locate(const Wanted& key) const {
        if (!spine) return {};
        // Find the last chunk whose first key is not greater than the wanted one.
        auto after = std::upper_bound(spine->begin(), spine->end(), key, [](const auto& wanted, const auto& chunk) {
            return wanted < chunk->front()->first;
        });
        if (after == spine->begin()) return {};
        const auto chunk = std::prev(after);
        const auto entry =
            std::lower_bound((*chunk)->begin(), (*chunk)->end(), key,
                             [](const auto& candidate, const auto& wanted) { return candidate->first < wanted; });
        return {static_cast<std::size_t>(chunk - spine->begin()), static_cast<std::size_t>(entry - (*chunk)->begin()),
                entry != (*chunk)->end() && (*entry)->first == key};
    }

    void put(const Place& place, std::shared_ptr<const Entry> entry) {
        auto newSpine = spine ? std::make_shared<Spine>(*spine) : std::make_shared<Spine>();
        auto chunk = spine ? std::make_shared<Chunk>(*(*spine)[place.chunk]) : std::make_shared<Chunk>();
        const auto at = chunk->begin() + static_cast<std::ptrdiff_t>(place.index);
        if (place.isThere) {
            *at = std::move(entry);
        } else {
            chunk->insert(at, std::move(entry));
            ++count;
        }
        std::shared_ptr<Chunk> upper;
        if (chunk->size() > chunkLimit) {
            const auto middle = chunk->begin() + chunkLimit / 2;
            upper = std::make_shared<Chunk>(middle, chunk->end());
            chunk->erase(middle, chunk->end());
        }
        if (newSpine->empty())
            newSpine->push_back(std::move(chunk));
        else
            (*newSpine)[place.chunk] = std::move(chunk);
        if (upper) newSpine->insert(newSpine->begin() + static_cast<std::ptrdiff_t>(place.chunk) + 1, std::move(upper));
        spine = std::move(newSpine);
    }

    std::shared_ptr<const Spine> spine;
    std::size_t count = 0;
};
