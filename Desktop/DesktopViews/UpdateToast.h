#pragma once

#include "DesktopViews/ToastView.h"
#include "StateKit/MainLoop.h"

#include <functional>
#include <optional>
#include <string>
#include <variant>

class ElidedLabel;
class QLabel;
class QPushButton;
class Spinner;

/// The bar that tells of updates: attached, of one that can be installed; floating, of how a check goes.
///
/// It is up while it has a message. Children are found under the names of the fields that hold them.
class UpdateToast : public ToastView {
    Q_OBJECT

public:
    /// A release is there, for a newer system than this. Goes by itself.
    struct MinimumSystemVersionRequired {
        std::string version;
        bool operator==(const MinimumSystemVersionRequired&) const = default;
    };
    struct ReadyUpdate {
        std::string version;
        bool operator==(const ReadyUpdate&) const = default;
    };
    struct Checking {
        bool operator==(const Checking&) const = default;
    };
    /// Goes by itself.
    struct NoUpdateAvailable {
        bool operator==(const NoUpdateAvailable&) const = default;
    };
    using Message = std::variant<MinimumSystemVersionRequired, ReadyUpdate, Checking, NoUpdateAvailable>;

    /// After which a message that goes by itself asks to.
    static constexpr Seconds dismissalDelay = 4;

    /// @param loop  must outlive it
    UpdateToast(MainLoop& loop, Style style, QWidget* parent = nullptr);
    ~UpdateToast() override;

    /// Shows it, also one that is equal to the one before; without one the bar goes.
    void setMessage(std::optional<Message> message);
    const std::optional<Message>& message() const { return _message; }

    /// The user wants the update.
    std::function<void()> onInstall;
    /// The user has clicked on a floating one, or it has been up long enough.
    std::function<void()> onDismissRequested;

protected:
    void applyLook() override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void render();
    void scheduleDismissal();

    MainLoop& loop;
    std::optional<Message> _message;
    Spinner* spinner;
    ElidedLabel* iconLabel;
    ElidedLabel* textLabel;
    QPushButton* actionButton;
    std::optional<Timer> autoDismissTask;
};
