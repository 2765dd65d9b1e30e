#include "TerminalKit/TerminalPrinter.h"

#include "TerminalKit/JsonLines.h"
#include "Text/Text.h"
#include "VimbleKit/ConsoleLines.h"

#include <utility>

TerminalPrinter::TerminalPrinter(Kit& kit, TerminalOutput& output, OutputForm form)
    : kit(kit), output(output), form(form) {}

void TerminalPrinter::start(const std::optional<std::string>& version) {
    const bool isJson = form == OutputForm::json;
    const auto& endpoint = kit.state().endpoint;
    write(isJson ? JsonLines::banner(version, kit.state().publicKey, endpoint ? endpoint->url() : "")
                 : ConsoleLines::banner(version));
    write(isJson ? JsonLines::line(Online::startup) : ConsoleLines::line(Online::startup));

    kit.observeState(*this, [](TerminalPrinter& printer, const State& state) { printer.stateChanged(state); });
    kit.observeNetworkIO(*this, [](TerminalPrinter& printer, const NetworkIO& traffic) {
        printer.write(printer.form == OutputForm::json ? JsonLines::line(traffic) : ConsoleLines::line(traffic));
    });
    kit.observeOnline(*this, [](TerminalPrinter& printer, const Online& online) {
        printer.write(printer.form == OutputForm::json ? JsonLines::line(online) : ConsoleLines::line(online));
    });
    kit.observeEvents(*this, [](TerminalPrinter& printer, const Event& event) { printer.happened(event); });
}

void TerminalPrinter::stateChanged(const State& state) {
    const std::size_t size = state.room.messages.size();
    hasRoomGrown = size > std::exchange(roomSize, size);
}

void TerminalPrinter::happened(const Event& event) {
    if (form == OutputForm::plain) {
        write(ConsoleLines::line(event));
        return;
    }
    // The event of a message follows at once after the change of state that added the message.
    write(JsonLines::line(event, hasRoomGrown ? JsonLines::Place::room : JsonLines::Place::direct));
}

void TerminalPrinter::sent(const std::string& target, const std::string& text, Date when) {
    if (form == OutputForm::json) write(JsonLines::sent(target, text, when));
}

void TerminalPrinter::sentCommand(const std::string& command, Date when) {
    if (form == OutputForm::json) write(JsonLines::sentCommand(command, when));
}

void TerminalPrinter::notSent(std::string_view typed, std::string_view reason) {
    if (form == OutputForm::json) write(JsonLines::notSent(typed, reason));
}

void TerminalPrinter::write(const std::optional<std::string>& line) {
    if (!line || isStopped) return;
    if (form == OutputForm::plain)
        output.line(Text::escaped(*line));
    else
        output.line(*line);
}
