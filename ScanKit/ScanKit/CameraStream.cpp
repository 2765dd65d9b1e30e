#include "ScanKit/CameraStream.h"

#include "Base/Check.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::array<std::uint8_t, 4> magic{'V', 'C', 'F', '1'};
constexpr std::size_t kindAt = 4;
constexpr std::size_t widthAt = 8;
constexpr std::size_t heightAt = 12;
constexpr std::size_t sideSize = 4;

void write(CameraStream::Header& header, std::size_t at, std::uint32_t number) {
    for (std::size_t i = 0; i < sideSize; ++i) header[at + i] = static_cast<std::uint8_t>(number >> (8 * i));
}

std::uint32_t read(const CameraStream::Header& header, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < sideSize; ++i) number |= static_cast<std::uint32_t>(header[at + i]) << (8 * i);
    return number;
}

bool isSize(std::uint64_t width, std::uint64_t height) {
    constexpr auto side = static_cast<std::uint64_t>(GreyFrame::maximumSide);
    return width > 0 && height > 0 && width <= side && height <= side && width * height <= CameraStream::maximumPixels;
}

}  // namespace

bool CameraStream::fits(int width, int height) {
    return width > 0 && height > 0 && isSize(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height));
}

CameraStream::Header CameraStream::headerOf(const CameraMessage& message) {
    Header header{};
    std::copy(magic.begin(), magic.end(), header.begin());
    header[kindAt] = static_cast<std::uint8_t>(message.kind);
    if (message.kind == CameraMessage::Kind::frame) {
        check(message.frame && fits(message.frame->width(), message.frame->height()), "a frame that can't be sent");
        write(header, widthAt, static_cast<std::uint32_t>(message.frame->width()));
        write(header, heightAt, static_cast<std::uint32_t>(message.frame->height()));
    }
    return header;
}

std::span<std::uint8_t> CameraStream::room() {
    return (frame ? frame->pixels() : std::span<std::uint8_t>(header)).subspan(filled);
}

std::optional<CameraMessage> CameraStream::advance(std::size_t count) {
    check(count <= room().size(), "more was read than there is room for");
    filled += count;
    if (!room().empty()) return std::nullopt;
    filled = 0;
    if (frame) return CameraMessage{CameraMessage::Kind::frame, std::exchange(frame, nullptr)};
    return readHeader();
}

std::optional<CameraMessage> CameraStream::readHeader() {
    if (!std::equal(magic.begin(), magic.end(), header.begin()))
        throw CameraStreamError("these are not the words of a camera program");
    if (std::any_of(header.begin() + kindAt + 1, header.begin() + widthAt, [](auto byte) { return byte != 0; }))
        throw CameraStreamError("a message of an unknown form");
    const std::uint32_t width = read(header, widthAt);
    const std::uint32_t height = read(header, heightAt);
    const auto kind = static_cast<CameraMessage::Kind>(header[kindAt]);
    switch (kind) {
        case CameraMessage::Kind::alive:
        case CameraMessage::Kind::noCamera:
        case CameraMessage::Kind::notOpened:
            if (width != 0 || height != 0) throw CameraStreamError("a message with a size that it can't have");
            return CameraMessage{kind, nullptr};
        case CameraMessage::Kind::frame:
            if (!isSize(width, height)) throw CameraStreamError("a frame of an impossible size");
            frame = std::make_shared<GreyFrame>(static_cast<int>(width), static_cast<int>(height));
            return std::nullopt;
    }
    throw CameraStreamError("a message of an unknown kind");
}
