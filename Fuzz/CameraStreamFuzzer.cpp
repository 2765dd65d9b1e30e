// Reads the stream of the camera program: any bytes, arriving in pieces of any size.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "ScanKit/CameraStream.h"

#include <algorithm>

namespace {

void checkMessage(const CameraMessage& message) {
    check((message.kind == CameraMessage::Kind::frame) == (message.frame != nullptr), "a frame is with the wrong kind");
    if (message.frame)
        check(CameraStream::fits(message.frame->width(), message.frame->height()),
              "a frame that does not fit was read");
    CameraStream again;
    const auto header = CameraStream::headerOf(message);
    std::copy(header.begin(), header.end(), again.room().begin());
    const auto copy = again.advance(header.size());
    check(copy.has_value() != (message.frame != nullptr), "a header is not read as it was written");
    check(!copy || *copy == message, "a word has become another");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t atOnce = 1 + input.byte();
    ByteView rest = input.rest();
    CameraStream stream;
    try {
        while (!rest.empty()) {
            const auto room = stream.room();
            const std::size_t count = std::min({room.size(), rest.size(), atOnce});
            check(count > 0, "there is no room");
            std::copy_n(rest.begin(), count, room.begin());
            rest = rest.subspan(count);
            if (const auto message = stream.advance(count)) checkMessage(*message);
        }
    } catch (const CameraStreamError&) {
        // The stream is refused for good, which is a valid outcome.
    }
    return 0;
}
