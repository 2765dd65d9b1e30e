#pragma once

#include "SigningSupport/TestIdentity.h"

#include <filesystem>
#include <string>

/// Whoever makes Vimble: bundles of the programs of this build, signs them, and publishes archives with a manifest.
///
/// What can't be done is a test failure.
class Publisher {
public:
    using Path = std::filesystem::path;

    /// Released bundles bring their libraries and plugins along. Those that use the machine's are a tenth of the size.
    enum class Layout { lean, selfContained };

    /// @param folder  for its files; the releases lie in `releases()`
    explicit Publisher(Path folder);

    const Path& releases() const { return _releases; }
    Path manifest() const { return _releases / "latest.json"; }
    const TestChain& chain() const { return _chain; }

    /// A bundle without a seal.
    /// @param manifestUrl  where it looks for updates; empty: nowhere
    void makeBundle(const Path& bundle, const std::string& version, const std::string& manifestUrl = {},
                    Layout layout = Layout::lean) const;
    void sign(const Path& bundle) const { sign(bundle, _chain); }
    void sign(const Path& bundle, const TestChain& by) const;
    void sealAdhoc(const Path& bundle) const;

    /// Puts a bundle into an archive of that version, and says in the manifest that there is one.
    void publish(const std::string& version, const Path& bundle) const;
    /// Makes a signed bundle of that version and publishes it.
    void release(const std::string& version, const std::string& manifestUrl = {}, Layout layout = Layout::lean) const;
    /// What the manifest says, as a whole or not at all.
    void writeManifest(const std::string& text) const;

    /// Writes a file anew, with its permissions.
    static void rewrite(const Path& file, const std::string& text);
    static std::string textOf(const Path& file);
    static std::string versionOf(const Path& bundle);
    /// Whether the seal of a bundle holds, by the real tool.
    static bool isSealed(const Path& bundle);

private:
    const Path folder;
    const Path _releases;
    const TestChain _chain = usualChain();
};
