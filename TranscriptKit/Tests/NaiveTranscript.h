#pragma once

#include "TranscriptKit/TranscriptBuilder.h"

#include <vector>

/// The rows of a chat by the plainest means: all entries in a list, the list sorted, and Qt asked for the day of
/// each. Tests compare the builder's rows with these.
///
/// Only for times between the years 1900 and 2100.
std::vector<Transcript::Item> naiveTranscript(const Chat* chat, const People& people,
                                              const std::vector<Activity>& activities);

/// All rows, for a comparison that looks at each.
std::vector<Transcript::Item> rowsOf(const Transcript& transcript);
