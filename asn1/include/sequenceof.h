// SEQUENCE OF and SET OF.
#pragma once

#include "asn1.h"

#include <cstddef>
#include <iterator>

namespace asn1 {

/// What lists of all item types share. A list is held as the encodings of its items one after
/// the other; an item is decoded when it is asked for.
class CERTSTOREUPDATER_API List : public ContentsValue {
public:
    /// Whether there are no items; also true of a list without a value.
    bool empty() const noexcept { return contents().empty(); }
    /// Number of items; takes time in proportion to it.
    std::size_t size() const noexcept;

protected:
    List() noexcept = default;

    /// The whole encoding of the item that begins at `position`.
    BufferRange<unsigned char> encodingAt(const unsigned char* position) const noexcept;
    void readItem(BufferRange<unsigned char> encoding, Asn1& item) const;
    void appendItem(const Asn1& item);
    /// \throws QuorError_Asn1_InvalidItemIndex with "INDEX" and "SIZE"
    BufferRange<unsigned char> encodingOf(std::size_t index) const;
    void makeEmpty();
};

/// A list of items of type `Item`. What was decoded keeps its order, also a SET OF.
template <class Item>
class ListOf : public List {
public:
    /// Walks over the items; valid as long as the list is there and unchanged.
    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag; ///< each item is decoded anew
        using value_type = Item;                           ///< what is listed
        using difference_type = std::ptrdiff_t;            ///< as all iterators have
        using pointer = const Item*;                       ///< not used: items are values
        using reference = Item;                            ///< an item is made when it is read

        /// Stands on the item whose encoding begins at `position`.
        Iterator(const ListOf& list, const unsigned char* position) noexcept
            : list_(&list), position_(position) {}

        /// The item; shares the list's bytes and may outlive the list.
        Item operator*() const {
            Item item;
            list_->readItem(list_->encodingAt(position_), item);
            return item;
        }
        /// To the next item.
        Iterator& operator++() noexcept {
            position_ = list_->encodingAt(position_).end();
            return *this;
        }
        /// To the next item; where it was.
        Iterator operator++(int) noexcept {
            Iterator old = *this;
            ++*this;
            return old;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) noexcept {
            return a.position_ == b.position_;
        }

    private:
        const ListOf* list_;
        const unsigned char* position_;
    };

    /// The iterators are valid as long as the list is there and unchanged.
    Iterator begin() const noexcept { return {*this, contents().begin()}; }
    Iterator end() const noexcept { return {*this, contents().end()}; } ///< past the last item

    /// The item at `index`; takes time in proportion to it.
    /// \throws QuorError_Asn1_InvalidItemIndex with "INDEX" and "SIZE"
    Item operator[](std::size_t index) const {
        Item item;
        readItem(encodingOf(index), item);
        return item;
    }

    /// Adds a copy of an item: to a SEQUENCE OF at the end, to a SET OF before the first item whose
    /// encoding is greater, so that one that a program builds is in the order of DER (X.690 11.6).
    /// Throws what encoding the item throws; the list is unchanged then.
    void append(const Item& item) { appendItem(item); }

    /// Makes the list one of no items, which differs from no value.
    void clear() { makeEmpty(); }

protected:
    ListOf() noexcept = default;
};

} // namespace asn1
