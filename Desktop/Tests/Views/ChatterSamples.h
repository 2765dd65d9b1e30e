#pragma once

#include "TranscriptKit/Transcript.h"

#include <string>

#include <QDate>
#include <QDateTime>
#include <QTime>

/// Transcripts for the tests of the view.
namespace ChatterSamples {

inline const std::string ann(64, 'a');
inline const std::string bob(64, 'b');

inline Date at(int hour, int minute, QDate day = QDate(2026, 11, 15)) {
    return Date::fromUnix(static_cast<double>(QDateTime(day, QTime(hour, minute)).toSecsSinceEpoch()));
}

inline Transcript::Item text(std::string words, Date time = at(12, 0), const std::string& author = ann) {
    return Transcript::Text{std::move(words), time, author == ann ? "🦊" : "🐼", author, author};
}

inline Transcript::Item activity(std::string words, Date time = at(12, 0)) {
    return Transcript::Activity{std::move(words), time};
}

inline Transcript::Item daybreak(QDate day = QDate(2026, 11, 15)) {
    return Transcript::Daybreak{Day(day.year(), day.month(), day.day())};
}

/// Messages of very different lengths.
inline Transcript varied(std::size_t count) {
    Transcript transcript;
    transcript.items.push_back(daybreak());
    for (std::size_t i = 1; i < count; ++i) {
        std::string words = "Number " + std::to_string(i);
        for (std::size_t k = 0; k < i * 7919 % 60; ++k) words += k % 13 == 5 ? "\nword" : " word";
        transcript.items.push_back(text(words, at(0, 0) + 100.0 * static_cast<double>(i), i * 31 % 5 < 2 ? ann : bob));
    }
    return transcript;
}

inline Transcript with(Transcript transcript, Transcript::Item item) {
    transcript.items.push_back(std::move(item));
    return transcript;
}

/// The first `count` rows, as a transcript that shares nothing with the given one.
inline Transcript shortened(const Transcript& transcript, std::size_t count) {
    Transcript result;
    for (std::size_t i = 0; i < count; ++i) result.items.push_back(transcript.items[i]);
    return result;
}

}  // namespace ChatterSamples
