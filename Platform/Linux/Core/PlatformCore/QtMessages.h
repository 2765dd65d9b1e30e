#pragma once

/// Qt's own messages.
namespace QtMessages {

/// Lets them go the way of `Log`, under "Qt", instead of to standard error as they come. For the whole
/// process, from now on; messages may come from any thread.
void toLog();

}  // namespace QtMessages
