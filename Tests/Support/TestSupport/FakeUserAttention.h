#pragma once

#include "AttentionKit/UserAttention.h"
#include "VimbleKit/Person.h"

#include <string>
#include <vector>

/// Notes the requests for attention. The test says whether the application is in front. For tests that link
/// AttentionKit.
class FakeUserAttention : public UserAttention {
public:
    bool isActive() const override { return isInFront; }
    void requestUserAttention(const Person& author, const std::string& text) override {
        requests.push_back(author.displayName() + ": " + text);
    }

    bool isInFront = false;
    std::vector<std::string> requests;  // "NAME: TEXT" each
};
