#pragma once

#include "Base/Bytes.h"
#include "StateKit/Date.h"

#include <cstdint>
#include <utility>

struct Member;
class ParcelHandle;

/// A pack on its way to one member, in memory. It lives while somebody has a `ParcelHandle` to it.
struct Parcel {
    enum class State : std::uint8_t {
        unkept,  // a pack to oneself: it is never written, and is lost with its last handle
        queued,  // waits in the mailroom's queue to be written, unless it is proved before
        stored,  // is in the store, until it is proved
        proved,  // has arrived: it is never delivered again
    };

    Parcel(Member& target, std::int64_t id, Date arrived, Bytes frame, State state)
        : target(&target), id(id), arrived(arrived), frame(std::move(frame)), state(state) {}

    Member* target;
    std::int64_t id;
    Date arrived;
    Bytes frame;
    State state;

private:
    friend ParcelHandle;
    std::uint32_t handles = 0;
};

/// Owns a parcel together with its other handles; the last to go destroys it.
///
/// A link has one for each parcel that it was or will be sent. Not `std::shared_ptr`, whose size would
/// double the queues of the links, and which can't be made again from a parcel that is known already.
class ParcelHandle {
public:
    template <class... Values>
    static ParcelHandle make(Values&&... values) {
        return ParcelHandle(*new Parcel(std::forward<Values>(values)...));
    }
    /// One more handle to a parcel that has one.
    explicit ParcelHandle(Parcel& parcel) : parcel(&parcel) { ++parcel.handles; }
    ParcelHandle(const ParcelHandle& other) : ParcelHandle(*other.parcel) {}
    ParcelHandle(ParcelHandle&& other) noexcept : parcel(std::exchange(other.parcel, nullptr)) {}
    ParcelHandle& operator=(ParcelHandle other) noexcept {
        std::swap(parcel, other.parcel);
        return *this;
    }
    ~ParcelHandle() {
        if (parcel && --parcel->handles == 0) delete parcel;
    }

    Parcel& operator*() const { return *parcel; }
    Parcel* operator->() const { return parcel; }
    /// How many handles the parcel has, this one included.
    std::uint32_t count() const { return parcel->handles; }

private:
    Parcel* parcel;  // null once it was moved from
};
