#pragma once

#include "StateKit/Record.h"

#include <string>
#include <tuple>
#include <vector>

/// What is remembered of one window.
///
/// JSON: an object of these fields.
struct WindowRecord {
    std::string identifier;  // names the window; a chat's window has a new one in each run
    std::string withKey;     // the other's public key for a chat's window; else empty
    std::string frame;       // QWidget::saveGeometry in Base64; empty until it was first shown
    bool isOpen = false;
    bool isMinimized = false;

    static constexpr auto fields =
        std::tuple{Field{"identifier", &WindowRecord::identifier}, Field{"WithKey", &WindowRecord::withKey},
                   Field{"frame", &WindowRecord::frame}, Field{"isOpen", &WindowRecord::isOpen},
                   Field{"isMinimized", &WindowRecord::isMinimized}};

    bool operator==(const WindowRecord&) const = default;
};

/// All of them, in the order in which the windows were made. JSON: {"windows": array of WindowRecord}.
struct WindowRecords {
    std::vector<WindowRecord> windows;

    static constexpr auto fields = std::tuple{Field{"windows", &WindowRecords::windows}};

    bool operator==(const WindowRecords&) const = default;
};
