#include "PlatformInstaller/InstallerBundle.h"

#include "PlatformBundle/PropertyListBundleReader.h"
#include "UpdateKit/InstallerXPC.h"

#include <stdexcept>

InstallerBundle InstallerBundle::of(const std::filesystem::path& program) {
    constexpr const char* toolName = "vimble-codesign";
    const std::filesystem::path contents = program.parent_path().parent_path();
    const auto bundle = PropertyListBundleReader().open(contents.parent_path());
    if (contents.filename() != "Contents" || !bundle)
        throw std::runtime_error(program.native() + " lies in no application bundle");
    const auto identifier = bundle->text("CFBundleIdentifier");
    const auto name = InstallerXPC::serviceName(identifier);
    if (!name) throw std::runtime_error(bundle->path.native() + " has no CFBundleIdentifier");
    for (const auto& folder : {program.parent_path(), contents / "Linux"})
        if (std::filesystem::exists(folder / toolName)) return {*identifier, *name, folder / toolName};
    throw std::runtime_error(bundle->path.native() + " has no " + toolName);
}
