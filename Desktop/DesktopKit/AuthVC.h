#pragma once

#include "StateKit/SignalTarget.h"
#include "VimbleKit/State.h"

#include <QScrollArea>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>
#include <string>

class KeyField;
class Kit;
class QComboBox;
class QLabel;
class QPushButton;
class ShareMenu;

/// The screen of a user who has no access yet: their public key, which they give to the server's
/// administrator, and the choice of a server.
///
/// Scrolls if the window is too small for it. Each child widget's object name is the name of the field that
/// holds it. Main thread only.
class AuthVC : public QScrollArea, public SignalTarget {
    Q_OBJECT

public:
    struct LocalState {
        using StateType = State;
        LocalState() = default;
        explicit LocalState(const State* state);

        std::string publicKey;
        std::string endpointInput;  // what to show as the server; the default one until the user has chosen

        bool operator==(const LocalState&) const = default;
    };

    static const QString accessMessage;
    /// The server that the list offers.
    static const QString defaultServer;

    /// @param previewKey  if given, the screen shows this key, follows no session and connects to nothing
    explicit AuthVC(Kit& kit, QWidget* parent = nullptr, std::optional<std::string> previewKey = {});
    ~AuthVC() override;

    /// Sets what opens a `mailto:` address and returns whether it could; the desktop's own way unless set.
    void setOpenUrl(std::function<bool(const QUrl&)> openUrl);

protected:
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void build();
    void applyLook();
    void apply(const LocalState& newState);
    std::string serverInput() const;
    bool isServerBeingTyped() const;
    void updateButton();
    void showHint(const QString& text);
    void connectHit();
    void shareHit();

    Kit& kit;
    std::optional<std::string> previewKey;
    LocalState state;
    std::optional<QString> pickedServer;  // the entry that was picked in the list, until something is typed

    QWidget* container;
    QLabel* appIcon;
    QLabel* expLabel;
    QComboBox* serverCombo;
    KeyField* copyField;
    QPushButton* shareButton;
    QPushButton* connectButton;
    QLabel* hintLabel;
    ShareMenu* shareMenu;
};
