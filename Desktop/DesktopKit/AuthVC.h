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

/// The screen of a user who isn't in: their public key, to be handed to whoever looks after the server,
/// and the choice of a server.
///
/// Scrolls where the window is too small for it. Children are found under the names of the fields that
/// hold them. Main thread only.
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
    /// What the list of servers offers.
    static const QString defaultServer;

    /// @param previewKey  makes a still picture that shows this key and follows no session
    explicit AuthVC(Kit& kit, QWidget* parent = nullptr, std::optional<std::string> previewKey = {});
    ~AuthVC() override;

    /// What opens a `mailto:` address, and tells whether it could; the desktop's own way unless set.
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
    std::optional<QString> pickedServer;  // the entry of the list that was picked, until something is typed

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
