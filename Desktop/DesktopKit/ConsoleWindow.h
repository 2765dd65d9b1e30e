#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/Kit.h"

#include <functional>
#include <optional>
#include <string>

#include <QMainWindow>

class ConsoleVC;

/// The window of the console. Made at the start of the program, hidden, so that the log holds everything
/// from the session's first moment; closing it only hides it. Main thread only.
class ConsoleWindow : public QMainWindow {
    Q_OBJECT

public:
    /// The name under which the window's place on the screen is remembered.
    static constexpr char identifier[] = "ConsoleWindowID";

    /// The parameters are those of `ConsoleVC`.
    ConsoleWindow(Kit& kit, const std::optional<std::string>& version, std::function<Date()> clock);

    ConsoleVC& consoleVC() { return *_consoleVC; }

private:
    ConsoleVC* _consoleVC;
};
