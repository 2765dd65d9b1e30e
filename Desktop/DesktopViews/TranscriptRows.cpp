#include "DesktopViews/TranscriptRows.h"

#include "DesktopViews/Look.h"
#include "QtText/QtText.h"
#include "TranscriptKit/DisplayText.h"
#include "TranscriptKit/RowRules.h"

#include <QCoreApplication>

#include <algorithm>
#include <variant>

namespace {

// The size of the cache, in rows of `ordinaryLength` characters; a longer row counts as several.
constexpr qsizetype mostLayouts = 400;
constexpr qsizetype ordinaryLength = 400;
// An estimate counts the line ends only in so many bytes of a text.
constexpr std::size_t mostCounted = 4096;

}  // namespace

TranscriptRows::TranscriptRows(const Transcript& transcript, bool isNamed, const QPalette& palette)
    : transcript(transcript), isNamed(isNamed), _style(palette), layouts(mostLayouts) {}

void TranscriptRows::setNameOf(std::function<std::string(const std::string&)> nameOf) {
    askName = std::move(nameOf);
    forget();
}

void TranscriptRows::setToday(const Day& today) {
    if (this->today == today) return;
    this->today = today;
    forget();
}

void TranscriptRows::setStyle(const QPalette& palette) {
    _style = RowStyle(palette);
    forget();
}

void TranscriptRows::setWidth(int width) {
    if (this->width == width) return;
    this->width = width;
    forget();
}

void TranscriptRows::forget(std::size_t firstRow) {
    if (firstRow == 0) {
        layouts.clear();
        return;
    }
    for (std::size_t row : layouts.keys())
        if (row >= firstRow) layouts.remove(row);
}

bool TranscriptRows::isText(std::size_t row) const {
    return std::holds_alternative<Transcript::Text>(transcript.items[row]);
}

QString TranscriptRows::text(std::size_t row) const {
    const Transcript::Item& item = transcript.items[row];
    if (const auto* text = std::get_if<Transcript::Text>(&item)) return DisplayText::message(text->text);
    if (const auto* activity = std::get_if<Transcript::Activity>(&item)) return DisplayText::message(activity->text);
    return std::get<Transcript::Daybreak>(item).day.displayText(today);
}

QString TranscriptRows::spoken(std::size_t row) const {
    const auto* text = std::get_if<Transcript::Text>(&transcript.items[row]);
    if (text == nullptr) return this->text(row);
    return nameOf(text->author) + QStringLiteral(", ") + RowRules::timeText(text->time) + QStringLiteral(", ") +
           this->text(row);
}

QString TranscriptRows::toolTip(std::size_t row) const {
    const auto* text = std::get_if<Transcript::Text>(&transcript.items[row]);
    return text == nullptr ? QString() : toQt(text->toolTip);
}

int TranscriptRows::estimate(std::size_t row) const {
    const Transcript::Item& item = transcript.items[row];
    if (std::holds_alternative<Transcript::Activity>(item)) return _style.noteHeight + 2 * _style.notePadding;
    const auto* text = std::get_if<Transcript::Text>(&item);
    if (text == nullptr) return 2 * _style.padding + _style.dayHeight + _style.dayPadding + _style.dayPadding / 2;
    const std::string_view words = text->text;
    const std::string_view counted = words.substr(0, mostCounted);
    const double lineEnds = static_cast<double>(std::count(counted.begin(), counted.end(), '\n'));
    const double length = static_cast<double>(std::min<std::size_t>(words.size(), RowLayout::mostCharacters));
    const double lines = 1 + lineEnds + std::floor(length * _style.characterWidth / _style.textWidth(width));
    const bool startsBlock = RowRules::look(transcript, row).showEmoji;
    const int aboveBlock = startsBlock ? _style.blockPadding + (isNamed ? _style.nameHeight : 0) : 0;
    return static_cast<int>(lines * _style.lineHeight) + 2 * _style.padding + aboveBlock;
}

const RowLayout& TranscriptRows::layout(std::size_t row) {
    if (const RowLayout* known = layouts.object(row)) return *known;
    auto made = std::make_unique<RowLayout>(content(row), _style, width);
    const qsizetype cost = std::min(mostLayouts, 1 + made->content().text.size() / ordinaryLength);
    RowLayout* layout = made.release();
    layouts.insert(row, layout, cost);
    return *layout;
}

RowContent TranscriptRows::content(std::size_t row) const {
    const Transcript::Item& item = transcript.items[row];
    RowContent content;
    content.text = text(row);
    if (content.text.size() > RowLayout::mostCharacters) {
        content.text.truncate(RowLayout::mostCharacters);
        if (content.text.back().isHighSurrogate()) content.text.chop(1);
        content.text += QStringLiteral("…");
    }
    const auto* text = std::get_if<Transcript::Text>(&item);
    if (text == nullptr) {
        content.kind = std::holds_alternative<Transcript::Activity>(item) ? RowContent::Kind::activity
                                                                          : RowContent::Kind::daybreak;
        return content;
    }
    const RowLook look = RowRules::look(transcript, row);
    content.startsBlock = look.showEmoji;
    if (look.showTime) content.time = RowRules::timeText(text->time);
    if (look.showEmoji) {
        content.emoji = DisplayText::name(text->emoji);
        if (isNamed) {
            content.name = nameOf(text->author);
            content.nameColor = Look::author(text->author, _style.palette);
        }
    }
    return content;
}

QString TranscriptRows::nameOf(const SharedText& author) const {
    return askName ? DisplayText::name(askName(author.string())) : QStringLiteral("Anonymous");
}
