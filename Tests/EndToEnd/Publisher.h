#pragma once

#include "SigningSupport/TestIdentity.h"

#include <filesystem>
#include <string>

/// The publisher of Vimble: makes bundles from the programs of this build, signs them, and publishes archives with a
/// manifest.
///
/// An operation that fails is a test failure.
class Publisher {
public:
    using Path = std::filesystem::path;

    /// A self-contained bundle has its libraries and plugins in it, as released ones do. A lean one uses the machine's,
    /// and is a tenth of the size.
    enum class Layout { lean, selfContained };

    /// @param folder  takes the publisher's files; the releases lie in `releases()`, below it
    explicit Publisher(Path folder);

    const Path& releases() const { return _releases; }
    Path manifest() const { return _releases / "latest.json"; }
    const TestChain& chain() const { return _chain; }

    /// Makes a bundle without a seal.
    /// @param manifestUrl  where the bundle looks for updates; empty: nowhere
    void makeBundle(const Path& bundle, const std::string& version, const std::string& manifestUrl = {},
                    Layout layout = Layout::lean) const;
    void sign(const Path& bundle) const { sign(bundle, _chain); }
    void sign(const Path& bundle, const TestChain& by) const;
    void sealAdhoc(const Path& bundle) const;

    /// Puts a bundle into an archive of that version, and names it in the manifest.
    void publish(const std::string& version, const Path& bundle) const;
    /// Makes a signed bundle of that version and publishes it.
    void release(const std::string& version, const std::string& manifestUrl = {}, Layout layout = Layout::lean) const;
    /// Replaces the manifest in one step, so that no reader gets half of it.
    void writeManifest(const std::string& text) const;

    /// Replaces a file's contents, and keeps its permissions.
    static void rewrite(const Path& file, const std::string& text);
    static std::string textIn(const Path& file);
    static std::string versionOf(const Path& bundle);
    /// Whether the real tool finds a bundle's seal unbroken.
    static bool isSealed(const Path& bundle);

private:
    const Path folder;
    const Path _releases;
    const TestChain _chain = usualChain();
};
