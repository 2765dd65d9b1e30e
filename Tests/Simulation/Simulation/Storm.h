#pragma once

#include "Simulation/World.h"

#include <string>
#include <vector>

/// What everybody does and what goes wrong, one thing after the other, and then the calm.
class Storm {
public:
    explicit Storm(World& world);

    /// Stops early once something has failed.
    void rage();
    /// Ends every fault. Who sleeps goes on sleeping.
    void calm();
    /// Those who were thrown out in the storm, and heard of it only now, try again.
    void connectAgain();
    /// Starts those who sleep.
    void wakeAll();
    /// Everybody who can says something to the room and to everybody.
    void lastRound();

private:
    struct Action {
        const char* name;
        double weight;
        void (Storm::*run)();
    };

    Machine* running();
    Machine& any();
    Wire* openWire();
    void after(Seconds delay, std::function<void()> work);
    void speak(Machine& machine, std::size_t size);
    void startRelay();

    // What people do.
    void say();
    void burst();
    void rename();
    void command();
    void disconnect();
    void connect();
    void chooseServer();
    void changeMembers();
    void admit();
    // What goes wrong.
    void restartClient();
    void stall();
    void slowDown();
    void cut();
    void halfOpen();
    void losePath();
    void stopRelay();
    void killRelay();
    void failStore();

    World& world;
    std::vector<Action> actions;
    double totalWeight = 0;
    Seconds length;
    Seconds meanGap;
    std::size_t textSize;
    bool isCalm = false;
    std::vector<Machine*> sleepers;
};
