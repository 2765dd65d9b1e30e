#include "AttentionKit/Notifier.h"

#include "Base/Check.h"
#include "Text/Url.h"
#include "TweetNacl/Nacl.h"

#include <array>
#include <cstdint>
#include <utility>
#include <variant>

namespace {

constexpr char bounceIconKey[] = "Notifier.IsBounceIconEnabled";
constexpr char chatNotificationsKey[] = "Notifier.IsChatNotificationsEnabled";
constexpr char joinNotificationsKey[] = "Notifier.IsJoinNotificationsEnabled";

/// The time between an event and its notification.
constexpr Seconds notificationDelay = 0.05;

std::function<NotifierEnvironment()>& sharedEnvironment() {
    static std::function<NotifierEnvironment()> environment;
    return environment;
}

/// A random UUID, version 4 of RFC 4122.
std::string freshIdentifier() {
    std::array<std::uint8_t, 16> bytes;
    Nacl::randomBytes(bytes);
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    std::string text = Nacl::hex(bytes);
    for (const std::size_t dash : {8, 13, 18, 23}) text.insert(dash, 1, '-');
    return text;
}

std::string shown(const Person& person) { return person.displayEmoji() + " " + person.displayName(); }

}  // namespace

Notifier::LocalState::LocalState(const State* state) {
    if (state == nullptr) return;
    if (const Person* me = state->me()) user = *me;
    endpoint = state->endpoint;
}

Notifier::Notifier(const NotifierEnvironment& environment)
    : environment(environment), soundboard(environment.loop, environment.sounds), _state(nullptr) {
    UserDefaults& defaults = environment.userDefaults;
    defaults.registerDefaults({{bounceIconKey, true}, {chatNotificationsKey, true}, {joinNotificationsKey, true}});
    _isBounceIconEnabled = defaults.boolForKey(bounceIconKey);
    _isChatNotificationsEnabled = defaults.boolForKey(chatNotificationsKey);
    _isJoinNotificationsEnabled = defaults.boolForKey(joinNotificationsKey);
}

Notifier& Notifier::shared() {
    static Notifier* const notifier = [] {
        check(static_cast<bool>(sharedEnvironment()), "Notifier::shared was used before Notifier::configureShared");
        return new Notifier(sharedEnvironment()());
    }();
    return *notifier;
}

void Notifier::configureShared(std::function<NotifierEnvironment()> environment) {
    sharedEnvironment() = std::move(environment);
}

void Notifier::start() {
    if (std::exchange(_isObserving, true)) return;
    environment.notifications.requestAuthorization();
    environment.kit.observeModel<LocalState>(*this,
                                             [](Notifier& self, const LocalState& state) { self._state = state; });
    environment.kit.observeEvents(*this, &Notifier::handle);
}

void Notifier::clearNotifications() {
    environment.notifications.removeAllPending();
    environment.notifications.removeAllDelivered();
}

void Notifier::stop() {
    hasStopped = true;
    clearNotifications();
}

void Notifier::setBounceIconEnabled(bool isEnabled) {
    _isBounceIconEnabled = isEnabled;
    environment.userDefaults.setBool(bounceIconKey, isEnabled);
}

void Notifier::setChatNotificationsEnabled(bool isEnabled) {
    _isChatNotificationsEnabled = isEnabled;
    environment.userDefaults.setBool(chatNotificationsKey, isEnabled);
}

void Notifier::setJoinNotificationsEnabled(bool isEnabled) {
    _isJoinNotificationsEnabled = isEnabled;
    environment.userDefaults.setBool(joinNotificationsKey, isEnabled);
}

// ---- events of the session

void Notifier::handle(const Event& event) {
    if (hasStopped) return;
    if (const auto* join = std::get_if<Events::Join>(&event)) handleJoin(join->user);
    if (const auto* message = std::get_if<Events::Message>(&event)) handleMessage(message->user, message->message);
}

void Notifier::handleMessage(const Person& person, const std::string& text) {
    if (!_state.user || person.publicKey == _state.user->publicKey) return;
    if (text.find(_state.user->displayName()) != std::string::npos)
        soundboard.playMention();
    else
        soundboard.playChat();
    postMessage(person, text);
}

void Notifier::handleJoin(const Person& person) {
    if (!_state.user) return;
    soundboard.playJoin();
    if (person.publicKey == _state.user->publicKey) return;
    postJoin(person);
}

// ---- what the user is shown

void Notifier::postMessage(const Person& author, const std::string& text) {
    if (_isBounceIconEnabled && !environment.attention.isActive())
        environment.attention.requestUserAttention(author, text);
    if (_isChatNotificationsEnabled) post(UserNotification::Kind::message, shown(author), text);
}

void Notifier::postJoin(const Person& person) {
    if (_isJoinNotificationsEnabled) post(UserNotification::Kind::presence, shown(person) + " is online", "");
}

void Notifier::post(UserNotification::Kind kind, std::string title, std::string body) {
    environment.notifications.add(
        {freshIdentifier(), kind, std::move(title), /*subtitle=*/serverHost(), std::move(body)}, notificationDelay);
}

std::string Notifier::serverHost() const {
    if (!_state.endpoint) return {};
    const auto url = Url::parse(_state.endpoint->url());
    return url ? url->host.value_or("") : "";
}
