#pragma once

#include "TweetNacl/Nacl.h"

#include <string>

/// Somebody of a simulation, with one machine or two.
struct SimulatedPerson {
    int index = 0;
    std::string letter;  // names the person in the trace
    PublicKey publicKey{};
    std::string publicKeyText;
    std::string secretKeyText;
};
