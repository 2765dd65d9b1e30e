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

/// The bar that tells of updates: the attached style of one that can be installed, the floating one of how a check
/// goes.
///
/// It is up while it has a message. The object names of its children are the names of the fields that hold them.
class UpdateToast : public ToastView {
    Q_OBJECT

public:
    /// There is a release, but it needs a newer system than this. Asks to be dismissed after `dismissalDelay`.
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
    /// Asks to be dismissed after `dismissalDelay`.
    struct NoUpdateAvailable {
        bool operator==(const NoUpdateAvailable&) const = default;
    };
    using Message = std::variant<MinimumSystemVersionRequired, ReadyUpdate, Checking, NoUpdateAvailable>;

    /// The time after which a message that does not stay calls `onDismissRequested`.
    static constexpr Seconds dismissalDelay = 4;

    /// @param loop  must outlive the toast
    UpdateToast(MainLoop& loop, Style style, QWidget* parent = nullptr);
    ~UpdateToast() override;

    /// Shows the message; an equal one restarts the time until dismissal. Without a message the bar slides down.
    void setMessage(std::optional<Message> message);
    const std::optional<Message>& message() const { return _message; }

    /// Called when the user clicked on "Update".
    std::function<void()> onInstall;
    /// Called when the user has clicked on a floating toast, or the message has been up for `dismissalDelay`.
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
