#pragma once

#include "AttentionKit/SoundPlayer.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Notes which sounds it is asked to play. For tests that link AttentionKit.
class FakeSoundPlayer : public SoundPlayer {
public:
    void play(std::string_view name) override { names.emplace_back(name); }

    /// The sounds since the last call.
    std::vector<std::string> take() { return std::exchange(names, {}); }

private:
    std::vector<std::string> names;
};
