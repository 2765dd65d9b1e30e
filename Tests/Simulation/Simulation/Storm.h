#pragma once

#include "Simulation/World.h"

#include <string>
#include <vector>

/// Makes people act and things go wrong, one random action after the other, and then ends all faults.
class Storm {
public:
    explicit Storm(World& world);

    /// Runs the storm. Ends early once a promise is broken.
    void rage();
    /// Ends every fault. Some machines quit and sleep until `wakeAll`, so that mail waits for them.
    void calm();
    /// Connects the machines that were thrown out in the storm, and heard of it only afterwards.
    void connectAgain();
    /// Starts the machines that sleep.
    void wakeAll();
    /// Every machine that can sends a text to the room, and one to each person.
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
