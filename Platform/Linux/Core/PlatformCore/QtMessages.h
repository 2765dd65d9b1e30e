#pragma once

/// Qt's own messages.
namespace QtMessages {

/// From now on, writes the messages of the whole process to `Log` under "Qt", instead of to standard error.
/// Messages may come from any thread.
void toLog();

}  // namespace QtMessages
