#pragma once

/// What the user wants, and what the link last did.
///
/// `setup`: the user has not asked to be connected, or was thrown out; nothing connects or retries.
/// `online`: the link is authenticated. `offline`: the user wants the link, and it is down.
///
/// JSON: an object whose one key is the case's name, with an empty object as the value: {"setup":{}}.
enum class Connection { setup, online, offline };

/// Whether the link is up, as observers are told. The session never sends `startup`: observers begin with it.
enum class Online { startup, online, offline };
