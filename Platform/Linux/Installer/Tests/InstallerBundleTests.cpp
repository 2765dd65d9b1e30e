#include "PlatformInstaller/InstallerBundle.h"

#include "InstallerFixture.h"
#include "SigningSupport/ProgramRun.h"

#include <fstream>

namespace {

namespace fs = std::filesystem;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class InstallerBundleTest : public InstallerFixture {
protected:
    InstallerBundleTest() { makeBundle(current, "1.0.0"); }

    std::string refusal() const {
        try {
            (void)InstallerBundle::of(program);
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }
    /// Runs the program itself.
    static ProgramRun runOn(const std::string& busAddress, const Path& which) {
        return ProgramRun::of({"/usr/bin/env", "DBUS_SESSION_BUS_ADDRESS=" + busAddress, which});
    }

    const Path program = current / "Contents/Services/vimble-installer";
    const Path tool = current / "Contents/Linux/vimble-codesign";
};

TEST_F(InstallerBundleTest, ItsNameComesFromTheIdentifierAndTheToolFromTheFolderOfPrograms) {
    const InstallerBundle bundle = InstallerBundle::of(program);
    EXPECT_EQ(bundle.serviceName, serviceName);
    EXPECT_EQ(bundle.codeSignTool, tool);
}

TEST_F(InstallerBundleTest, AToolBesideItComesFirst) {
    const Path beside = program.parent_path() / "vimble-codesign";
    fs::copy_file(tool, beside);
    EXPECT_EQ(InstallerBundle::of(program).codeSignTool, beside);
}

TEST_F(InstallerBundleTest, WithoutWhatItNeedsItSaysWhatIsMissing) {
    fs::remove(tool);
    EXPECT_THAT(refusal(), EndsWith("Vimble.app has no vimble-codesign"));
    std::ofstream(current / "Contents/Info.plist") << "<plist version=\"1.0\"><dict></dict></plist>";
    EXPECT_THAT(refusal(), EndsWith("Vimble.app has no CFBundleIdentifier"));
    fs::remove(current / "Contents/Info.plist");
    EXPECT_THAT(refusal(), EndsWith("vimble-installer lies in no application bundle"));
}

TEST_F(InstallerBundleTest, TheProgramEndsOutsideABundle) {
    startBus();
    const ProgramRun run = runOn(bus->address(), INSTALLER_PROGRAM);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("lies in no application bundle\n"));
}

TEST_F(InstallerBundleTest, TheProgramEndsWithoutABus) {
    const ProgramRun run = runOn("unix:path=/nowhere/at/all", program);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("UpdateKitInstaller/main: no session bus: "));
}

TEST_F(InstallerBundleTest, TheProgramEndsIfAnotherOneHasItsName) {
    startBus();
    QDBusConnection other = bus->connection();
    ASSERT_TRUE(other.registerService(QLatin1String(serviceName)));
    const ProgramRun run = runOn(bus->address(), program);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr(std::string("the name ") + serviceName + " is not to be had"));
    other.unregisterService(QLatin1String(serviceName));
}

}  // namespace
