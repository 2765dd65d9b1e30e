#pragma once

/// What the user wants, and what the link last did.
///
/// `setup`: the user has not asked to be connected, or was thrown out; nothing connects or retries.
/// `online`: the link is authenticated. `offline`: the user wants it and it is down.
///
/// JSON: an object with the case's name as its one key, and an empty object behind it: {"setup":{}}.
enum class Connection { setup, online, offline };

/// Link up and down, as observers are told. `startup` is what an observer holds before the first word.
enum class Online { startup, online, offline };
