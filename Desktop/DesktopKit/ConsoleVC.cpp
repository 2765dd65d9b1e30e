#include "DesktopKit/ConsoleVC.h"

#include "DesktopViews/ConsoleOutputView.h"
#include "DesktopViews/Look.h"
#include "VimbleKit/ConsoleLines.h"

#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace {

constexpr double inputHeight = 40;

}  // namespace

ConsoleVC::ConsoleVC(Kit& kit, const std::optional<std::string>& version, std::function<Date()> clock, QWidget* parent)
    : QWidget(parent),
      kit(kit),
      _output(new ConsoleOutputView(std::move(clock), this)),
      _input(new ConsoleInputView(this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(_output);
    layout->addWidget(_input);
    // The input is higher only if a large desktop font needs it.
    _input->setFixedHeight(static_cast<int>(std::lround(std::max(inputHeight, Look::scaled(inputHeight)))));
    _input->setDelegate(Weak<ConsoleInputViewDelegate>(this, *this));

    _output->append(ConsoleLines::banner(version));
    // The session reports nothing before its link has come up or failed, so write its first state here.
    onlineChanged(Online::startup);

    kit.observeNetworkIO(
        *this, [](ConsoleVC& self, const NetworkIO& traffic) { self._output->append(ConsoleLines::line(traffic)); });
    kit.observeOnline(*this, [](ConsoleVC& self, Online online) { self.onlineChanged(online); });
    kit.observeEvents(*this, [](ConsoleVC& self, const Event& event) {
        if (const auto line = ConsoleLines::line(event)) self._output->append(*line);
    });
}

void ConsoleVC::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!event->spontaneous()) _input->setFocus();
}

void ConsoleVC::onlineChanged(Online online) {
    _input->setOffline(online != Online::online);
    _output->append(ConsoleLines::line(online));
}

void ConsoleVC::didSubmit(const std::string& text) {
    std::string_view command = text;
    if (command.starts_with('/')) command.remove_prefix(1);
    if (command.empty()) return;
    try {
        kit.command(command);
    } catch (const SocketError&) {
        // Drop the error: the console shows nothing of a command but the server's answer.
    } catch (const NaclError&) {
        // Drop this error too.
    }
}
