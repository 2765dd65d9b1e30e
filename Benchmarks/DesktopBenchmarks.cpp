#include "DesktopHistory.h"

#include "DesktopKit/ChatterVC.h"
#include "DesktopKit/ChatterWindow.h"
#include "DesktopViews/ChatterView.h"

#include <memory>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QScrollBar>

namespace {

constexpr std::size_t few = 1000;
constexpr std::size_t many = 100000;

DesktopHistory& history(std::size_t messageCount) {
    static DesktopHistory small(few);
    static DesktopHistory large(many);
    return messageCount == few ? small : large;
}

/// Shows a window, and returns when it has been painted.
void showPainted(QWidget& window) {
    window.show();
    QCoreApplication::processEvents();
    window.repaint();
}

void openChat(benchmark::State& state, std::size_t messageCount) {
    DesktopHistory& talk = history(messageCount);
    for (auto _ : state) {
        auto window = std::make_unique<ChatterWindow>(talk.kit(), talk.loop(), DesktopHistory::partner());
        showPainted(*window);
        state.PauseTiming();
        // The beginning of a long chat is built only after the first painting.
        QCoreApplication::processEvents();
        const ChatterView& view = window->chatterVC().output();
        if (!view.isAtEnd() || view.transcript().items.size() < messageCount)
            state.SkipWithError("it did not open as a whole, and at its end");
        window.reset();
        state.ResumeTiming();
    }
}

/// An open window of a talk, at its end.
struct OpenChat {
    explicit OpenChat(std::size_t messageCount) : talk(history(messageCount)) {
        window = std::make_unique<ChatterWindow>(talk.kit(), talk.loop(), DesktopHistory::partner());
        showPainted(*window);
        QCoreApplication::processEvents();
    }
    ChatterView& view() const { return window->chatterVC().output(); }

    DesktopHistory& talk;
    std::unique_ptr<ChatterWindow> window;
};

void receiveOne(benchmark::State& state, std::size_t messageCount) {
    const OpenChat chat(messageCount);
    const std::size_t before = chat.view().transcript().items.size();
    for (auto _ : state) {
        chat.talk.receiveOne();
        QCoreApplication::processEvents();
        chat.window->repaint();
    }
    if (chat.view().transcript().items.size() < before + static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("a message is missing");
}

void scrollStep(benchmark::State& state, std::size_t messageCount) {
    const OpenChat chat(messageCount);
    QScrollBar& bar = *chat.view().verticalScrollBar();
    const int step = chat.view().viewport()->height() / 3;
    for (auto _ : state) {
        // Scroll up through the history, and jump to the end before the beginning is reached.
        bar.setValue(bar.value() <= step ? bar.maximum() : bar.value() - step);
        chat.view().viewport()->repaint();
    }
}

void openChat1000(benchmark::State& state) { openChat(state, few); }
void openChat100000(benchmark::State& state) { openChat(state, many); }
void receiveOneAt1000(benchmark::State& state) { receiveOne(state, few); }
void receiveOneAt100000(benchmark::State& state) { receiveOne(state, many); }
void scrollStepAt1000(benchmark::State& state) { scrollStep(state, few); }
void scrollStepAt100000(benchmark::State& state) { scrollStep(state, many); }

}  // namespace

BENCHMARK(openChat1000)->Unit(benchmark::kMillisecond);
BENCHMARK(openChat100000)->Unit(benchmark::kMillisecond);
BENCHMARK(receiveOneAt1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(receiveOneAt100000)->Unit(benchmark::kMicrosecond);
// A thousand rows have room for 250 steps, so that each step shows rows that were not shown before.
BENCHMARK(scrollStepAt1000)->Unit(benchmark::kMicrosecond)->Iterations(250);
BENCHMARK(scrollStepAt100000)->Unit(benchmark::kMicrosecond)->Iterations(250);
