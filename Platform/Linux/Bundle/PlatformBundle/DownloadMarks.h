#pragma once

#include <filesystem>

/// Takes the marks of a download ("user.xdg.origin.url" and "user.xdg.referrer.url") off a file, or a folder and
/// all that is in it. Follows no links. What has none, can have none or can't be changed is passed over: the
/// marks are a courtesy, and no reason to refuse an update.
void removeDownloadMarks(const std::filesystem::path& path);
