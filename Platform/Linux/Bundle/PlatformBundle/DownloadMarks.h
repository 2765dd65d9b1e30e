#pragma once

#include <filesystem>

/// Removes the marks of a download ("user.xdg.origin.url" and "user.xdg.referrer.url") from a file, or from a
/// folder and all that is in it. Follows no links. Files that have no marks, can have none or can't be changed are
/// passed over: the marks are a courtesy, and no reason to refuse an update.
void removeDownloadMarks(const std::filesystem::path& path);
