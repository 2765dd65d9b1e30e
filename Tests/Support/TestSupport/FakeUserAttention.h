#pragma once

#include "AttentionKit/UserAttention.h"
#include "VimbleKit/Person.h"

#include <string>
#include <vector>

/// The application's place on a desktop of the test's making. For tests that link AttentionKit.
class FakeUserAttention : public UserAttention {
public:
    bool isActive() const override { return isInFront; }
    void requestUserAttention(const Person& author, const std::string& text) override {
        requests.push_back(author.displayName() + ": " + text);
    }

    bool isInFront = false;
    std::vector<std::string> requests;  // "NAME: TEXT" each
};
