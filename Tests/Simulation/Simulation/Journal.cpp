#include "Simulation/Journal.h"

#include <array>
#include <cstdio>

namespace {

std::string clockText(Seconds since) {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%10.4f  ", since);
    return text.data();
}

}  // namespace

void Journal::write(const std::string& text) const { *trace << clockText(loop.now() - started) << text << '\n'; }

void Journal::fail(const std::string& reason) {
    line([&] { return "BROKEN: " + reason; });
    if (!firstFailure) firstFailure = "after " + clockText(loop.now() - started) + "seconds: " + reason;
}
