#include "Desk.h"
#include "Loudspeaker.h"
#include "NotificationService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

using testing::HasSubstr;
using testing::Not;

namespace {

/// Ann is at a desk, Bob at a terminal; both are members. Others may come.
class DesktopAttentionTest : public testing::Test {
protected:
    void SetUp() override {
        world.startRelay();
        for (const char* name : {"ann", "bob", "cleo", "dan"}) world.admit(name);
        annKey = world.key("ann");
        bob = world.client("bob");
        bob->lineWith("list of ");
        bob->write("/name Bob\n");
        ann.emplace(world, "ann");
    }

    /// Starts the program, and brings another program to the front.
    void startInBackground() {
        ann->start();
        ann->sees("People", "Bob, online");
        ann->activate("People");
        toBackground();
    }

    void toBackground() {
        Process::Start start;
        start.command = {"/usr/bin/xev", "-name", "Other Program", "-event", "expose", "-geometry", "200x100+20+600"};
        start.environment = ann->screen().environment();
        other = std::make_unique<Process>(start);
        ann->activate("Other Program");
    }

    void openPreferences() {
        ann->activate("People");
        ann->press("ctrl+comma");
        ann->expectActive("Preferences");
    }

    bool isOn(const std::string& box) {
        const auto item = ann->sees("Preferences", box, "check box");
        return item && ann->tree().isChecked(*item);
    }

    void comesAndGoes(const std::string& name) {
        auto client = world.client(name);
        client->lineWith("list of ");
        ann->sees("People", anonymous(name) + ", online");
        client->closeInput();
        EXPECT_EQ(client->wait(), 0);
        EXPECT_TRUE(bob->lineWith(anonymous(name) + " went away"));
    }

    std::string anonymous(const std::string& name) { return "anonymous" + world.key(name).substr(0, 6); }

    /// Bob sends a text to Ann alone. Waits until she has saved it.
    void bobSays(const std::string& text) {
        bob->write("@" + annKey + " " + text + "\n");
        EXPECT_TRUE(ann->comesTrue([&] { return world.isSaved("ann", text); }));
    }

    bool shows(NotificationService& service, const std::string& text) {
        return ann->comesTrue([&] { return service.shown().find(text) != std::string::npos; });
    }

    bool displays(const NotificationService& service, long count) {
        return ann->comesTrue([&] { return service.displayed() == count; });
    }

    bool asksForAttention() {
        const auto id = ann->screen().window("People");
        if (!id) return false;
        return ann->screen().run({"/usr/bin/xprop", "-id", *id, "_NET_WM_STATE"}).output.find("DEMANDS_ATTENTION") !=
               std::string::npos;
    }

    static constexpr char chats[] = "Show chat message notifications";
    static constexpr char joins[] = "Show user now online notifications";
    ChatWorld world;
    std::string annKey;
    std::unique_ptr<Process> bob;
    std::optional<Desk> ann;
    std::unique_ptr<Process> other;
};

}  // namespace

TEST_F(DesktopAttentionTest, WhoComesAndWhoWritesIsShownInBubblesOfWhichAClickBringsTheProgramForward) {
    NotificationService service(ann->screen(), world.folder.path);
    startInBackground();
    comesAndGoes("cleo");
    EXPECT_TRUE(displays(service, 1)) << service.displayed();
    EXPECT_FALSE(asksForAttention());
    bob->write("/name <i>Bob</i>\n/emoji 🦊\n");
    bobSays("is <b>1 < 2</b> & so on?");
    EXPECT_TRUE(displays(service, 2)) << service.displayed();
    EXPECT_TRUE(ann->comesTrue([&] { return asksForAttention(); }));
    ann->picture("bubbles");
    ann->expectActive("Other Program");

    service.click();
    ann->expectActive("People");
    // The program clears its bubbles once it is in front, since its user sees the windows.
    EXPECT_TRUE(displays(service, 0)) << service.displayed();
    EXPECT_TRUE(ann->comesTrue([&] { return !asksForAttention(); }));
    ann->picture("brought-forward");
    const std::string closed = service.closed();
    EXPECT_THAT(closed, HasSubstr("😐 " + anonymous("cleo") + " is online · 127.0.0.1"));
    EXPECT_THAT(closed, HasSubstr("presence.online"));
    EXPECT_THAT(closed, HasSubstr("🦊 <i>Bob</i> · 127.0.0.1"));
    EXPECT_THAT(closed, HasSubstr("is &lt;b&gt;1 &lt; 2&lt;/b&gt; &amp; so on?"));
    EXPECT_THAT(closed, HasSubstr("im.received"));
    EXPECT_THAT(closed, HasSubstr("\"Vimble\""));

    // Coming forward in any other way clears them as well.
    toBackground();
    bobSays("one more");
    EXPECT_TRUE(displays(service, 1));
    ann->activate("People");
    EXPECT_TRUE(displays(service, 0));
    ann->quit();
}

TEST_F(DesktopAttentionTest, ASwitchThatIsTurnedOffStaysOffAfterARestart) {
    NotificationService service(ann->screen(), world.folder.path);
    ann->start();
    ann->sees("People", "Bob, online");
    openPreferences();
    for (const char* box : {"Bounce dock icon on new messages", chats, joins}) EXPECT_TRUE(isOn(box)) << box;
    ann->press("alt+c");
    EXPECT_TRUE(ann->comesTrue([&] { return !isOn(chats); }));
    ann->picture("chat-off");
    const auto onlyOfComing = [&](const std::string& text, const std::string& name) {
        toBackground();
        bobSays(text);
        comesAndGoes(name);
        // Bubbles are shown in the order in which they are posted: one for the text would have come first.
        EXPECT_TRUE(shows(service, anonymous(name) + " is online"));
        EXPECT_THAT(service.shown(), Not(HasSubstr(text)));
        ann->picture("only-of-coming");
        ann->activate("People");
        EXPECT_TRUE(displays(service, 0)) << service.displayed();
    };
    onlyOfComing("not shown", "cleo");
    ann->quit();

    ann->start();
    ann->sees("People", "Bob, online");
    onlyOfComing("nor this", "dan");
    openPreferences();
    EXPECT_FALSE(isOn(chats));
    EXPECT_TRUE(isOn(joins));

    // Now with chats on and joins off.
    ann->press("alt+c");
    ann->press("alt+u");
    EXPECT_TRUE(ann->comesTrue([&] { return isOn(chats) && !isOn(joins); }));
    toBackground();
    comesAndGoes("cleo");
    bobSays("shown again");
    EXPECT_TRUE(shows(service, "shown again"));
    EXPECT_EQ(service.displayed(), 1);
    ann->picture("only-of-texts");
    ann->activate("People");
    EXPECT_TRUE(displays(service, 0)) << service.displayed();
    ann->quit();
}

TEST_F(DesktopAttentionTest, AServiceThatIsNotThereOrDiesCostsItsBubblesAndNothingElse) {
    startInBackground();
    bobSays("to nobody's service");
    {
        NotificationService service(ann->screen(), world.folder.path);
        bobSays("with a service");
        EXPECT_TRUE(displays(service, 1));
        service.kill();
        bobSays("the service is dead");
    }
    NotificationService service(ann->screen(), world.folder.path);
    bobSays("with a new one");
    EXPECT_TRUE(displays(service, 1));
    ann->activate("People");
    EXPECT_TRUE(displays(service, 0));
    EXPECT_THAT(service.closed(), HasSubstr("with a new one"));
    EXPECT_THAT(service.closed(), Not(HasSubstr("nobody's")));
    ann->doubleClick("People", "Bob, online");
    for (const char* text : {"to nobody's service", "with a service", "the service is dead", "with a new one"})
        ann->sees("Bob", text);
    ann->quit();
}

TEST_F(DesktopAttentionTest, WhoComesAndWhoWritesIsHeardThoughAllSwitchesAreOff) {
    Loudspeaker loudspeaker(ann->screen());
    ann->start();
    ann->sees("People", "Bob, online");
    openPreferences();
    for (const char* key : {"alt+b", "alt+c", "alt+u"}) ann->press(key);
    EXPECT_TRUE(ann->comesTrue([&] { return !isOn(chats) && !isOn(joins); }));
    ann->activate("People");
    const auto isHeard = [&] { return ann->comesTrue([&] { return loudspeaker.wasHeard(); }); };
    const auto becomesSilent = [&] {
        if (!ann->comesTrue([&] { return loudspeaker.isSilent(); })) return false;
        static_cast<void>(loudspeaker.wasHeard());
        return true;
    };
    EXPECT_TRUE(becomesSilent());
    bobSays("do you hear me?");
    EXPECT_TRUE(isHeard());
    EXPECT_TRUE(becomesSilent());
    comesAndGoes("cleo");
    EXPECT_TRUE(isHeard());
    ann->quit();
}
