#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <type_traits>
#include <vector>

/// An append-only list whose copies share their elements.
///
/// Copying costs the same at any length. Appending to one copy leaves all others as they were and
/// costs a constant on average: elements lie in chunks that never move, and the copy that first
/// appends behind a shared beginning goes on in the shared last chunk, since the others never read a
/// chunk past their own count. A copy that finds this place taken gets a last chunk of its own.
///
/// Comparing with an unchanged copy is one pointer comparison. Copies that share may be read on any
/// thread, but as long as one is appended to, all must stay on that thread.
template <class Element>
class SharedList {
    static_assert(!std::is_same_v<Element, bool>, "a vector of bool has no elements to refer to");
    static constexpr std::size_t chunkSize = 256;
    using Chunk = std::vector<Element>;
    using Spine = std::vector<std::shared_ptr<Chunk>>;

public:
    using value_type = Element;

    class const_iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = Element;
        using difference_type = std::ptrdiff_t;
        using pointer = const Element*;
        using reference = const Element&;

        const_iterator() = default;
        const_iterator(const SharedList* list, std::size_t index) : list(list), index(index) {}

        reference operator*() const { return (*list)[index]; }
        pointer operator->() const { return &(*list)[index]; }
        reference operator[](difference_type n) const { return (*list)[index + static_cast<std::size_t>(n)]; }
        const_iterator& operator++() { return ++index, *this; }
        const_iterator operator++(int) { return {list, index++}; }
        const_iterator& operator--() { return --index, *this; }
        const_iterator operator--(int) { return {list, index--}; }
        const_iterator& operator+=(difference_type n) { return index += static_cast<std::size_t>(n), *this; }
        const_iterator& operator-=(difference_type n) { return index -= static_cast<std::size_t>(n), *this; }
        friend const_iterator operator+(const_iterator it, difference_type n) { return it += n; }
        friend const_iterator operator+(difference_type n, const_iterator it) { return it += n; }
        friend const_iterator operator-(const_iterator it, difference_type n) { return it -= n; }
        friend difference_type operator-(const_iterator a, const_iterator b) {
            return static_cast<difference_type>(a.index) - static_cast<difference_type>(b.index);
        }
        bool operator==(const const_iterator& other) const { return index == other.index; }
        auto operator<=>(const const_iterator& other) const { return index <=> other.index; }

    private:
        const SharedList* list = nullptr;
        std::size_t index = 0;
    };

    SharedList() = default;
    SharedList(std::initializer_list<Element> elements) {
        for (const Element& element : elements) push_back(element);
    }

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    const Element& operator[](std::size_t index) const { return (*(*spine)[index / chunkSize])[index % chunkSize]; }
    const Element& back() const { return (*this)[count - 1]; }
    /// An element that may be used after the list has died: it stays in its place as long as the pointer
    /// lives. Nothing is copied, but the other elements of its chunk are kept with it.
    std::shared_ptr<const Element> shared(std::size_t index) const {
        const std::shared_ptr<Chunk>& chunk = (*spine)[index / chunkSize];
        return {chunk, &(*chunk)[index % chunkSize]};
    }
    /// The first `length` elements (all, if there are fewer), shared with this list.
    [[nodiscard]] SharedList prefix(std::size_t length) const {
        SharedList list = *this;
        list.count = std::min(count, length);
        return list;
    }
    const_iterator begin() const { return {this, 0}; }
    const_iterator end() const { return {this, count}; }

    /// References to elements stay valid.
    void push_back(Element element) {
        if (!spine) spine = std::make_shared<Spine>();
        const std::size_t chunkIndex = count / chunkSize;
        const std::size_t used = count % chunkSize;
        if (spine->size() > chunkIndex + 1 ||
            (spine->size() == chunkIndex + 1 && (*spine)[chunkIndex]->size() != used)) {
            takeOwnTail(chunkIndex, used);
        }
        if (used == 0) {
            auto chunk = std::make_shared<Chunk>();
            chunk->reserve(chunkSize);
            spine->push_back(std::move(chunk));
        }
        (*spine)[chunkIndex]->push_back(std::move(element));
        ++count;
    }

    /// How many elements at the beginning the two lists share, found without comparing any: a lower bound
    /// of the common beginning, exact for a list and a copy of it that was appended to.
    std::size_t sharedBeginning(const SharedList& other) const {
        if (!spine || !other.spine) return 0;
        const std::size_t shorter = std::min(count, other.count);
        if (spine == other.spine) return shorter;
        std::size_t chunk = 0;
        while (chunk * chunkSize < shorter && (*spine)[chunk] == (*other.spine)[chunk]) ++chunk;
        return std::min(shorter, chunk * chunkSize);
    }

    bool operator==(const SharedList& other) const {
        if (count != other.count) return false;
        for (std::size_t i = sharedBeginning(other); i < count; ++i)
            if (!((*this)[i] == other[i])) return false;
        return true;
    }

private:
    /// Gives this list a last chunk and a spine of its own, since another copy has appended behind our end.
    void takeOwnTail(std::size_t chunkIndex, std::size_t used) {
        auto own = std::make_shared<Spine>(spine->begin(), spine->begin() + static_cast<std::ptrdiff_t>(chunkIndex));
        if (used > 0) {
            const Chunk& shared = *(*spine)[chunkIndex];
            auto chunk = std::make_shared<Chunk>();
            chunk->reserve(chunkSize);
            chunk->insert(chunk->end(), shared.begin(), shared.begin() + static_cast<std::ptrdiff_t>(used));
            own->push_back(std::move(chunk));
        }
        spine = std::move(own);
    }

    std::shared_ptr<Spine> spine;
    std::size_t count = 0;
};
