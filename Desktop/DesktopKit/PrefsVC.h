#pragma once

#include "AttentionKit/Notifier.h"
#include "DesktopKit/KeyReplaceWindow.h"
#include "DesktopKit/KeyScanVC.h"
#include "DesktopViews/KeyField.h"
#include "DesktopViews/Spinner.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "StateKit/Worker.h"
#include "VimbleKit/KeyAccess.h"

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QWidget>

/// What the preferences work with. The references must outlive the window.
struct PrefsEnvironment {
    MainLoop& loop;
    std::shared_ptr<Worker> pictureWorker;  // looks through pictures of paper keys; the program holds it too
    KeyAccess& keys;
    Notifier& notifier;
    /// Makes a camera for the scanner of paper keys.
    std::function<std::unique_ptr<FrameSource>()> makeCamera;
    /// Makes a paper key; its dialog belongs to `parent`.
    std::function<void(const SecretKey& secretKey, QWidget& parent)> exportKey;
};

/// The form of the preferences: the public key, the way to replace and to export the secret one, which is
/// never shown, and three switches of the notifier.
///
/// An operation on the secret store takes as long as the store wants. Until it ends the form begins no other:
/// the two buttons do nothing, and if it takes longer than a moment they are turned off and a spinner turns.
/// The form reads the store anew for each export, and each time it comes to the screen.
///
/// A replacement changes nothing about the running session, which keeps the keys that it has read: the new
/// identity is used from the program's next start on.
///
/// Main thread only.
class PrefsVC : public QWidget, public SignalTarget, public KeyReplaceWindowDelegate {
    Q_OBJECT

public:
    explicit PrefsVC(const PrefsEnvironment& environment, QWidget* parent = nullptr);

    void secretKeyReplaceHit();
    void secretKeyExportHit();
    void bounceIconHit();
    void chatNotificationsHit();
    void joinNotificationsHit();

    /// The open sheet; null if there is none.
    KeyReplaceWindow* keyReplaceSheet() const { return _keyReplaceSheet; }
    /// Whether an operation on the secret store is under way.
    bool isBusy() const { return pending > 0; }

    void keyReplaceCancelled(KeyReplaceWindow& window) override;
    void keyReplaceGenerate(KeyReplaceWindow& window) override;
    void keyReplaceWith(KeyReplaceWindow& window, std::string_view secretKeyText) override;

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QLabel* addLabel(int row, const char* name, const QString& text);
    QCheckBox* addCheckBox(int row, const char* name, const QString& text, void (PrefsVC::*hit)());
    void build();
    void applyLook();
    void fillPublicKey();
    void fillSwitches();
    void begin();
    void ended();
    void showSlow(bool isSlow);
    void sheetEnded();
    static void written(PrefsVC& self, const KeyAccess::Outcome& outcome);

    const PrefsEnvironment environment;
    QGridLayout* grid;
    QLabel* publicKeyLabel;
    KeyField* publicKeyValue;
    QLabel* secretKeyLabel;
    QLabel* secretKeyExplanation;
    QPushButton* secretKeyReplace;
    QPushButton* secretKeyExport;
    QHBoxLayout* secretKeyGrid;
    Spinner* spinner;
    QLabel* notificationsLabel;
    QCheckBox* bounceIcon;
    QCheckBox* chatNotifications;
    QCheckBox* joinNotifications;
    QPointer<KeyReplaceWindow> _keyReplaceSheet;
    int pending = 0;                // operations under way
    std::optional<Timer> patience;  // runs until an operation counts as slow
    QPointer<QWidget> lostFocus;    // the button that had the keyboard before it was turned off
};
