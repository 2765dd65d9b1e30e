#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "StateKit/Worker.h"

#include <memory>
#include <string_view>

#include <QDialog>

class FrameSource;
class KeyReplaceVC;
class KeyReplaceWindow;

/// Does what the user has chosen in the sheet, and ends the sheet.
class KeyReplaceWindowDelegate {
public:
    virtual ~KeyReplaceWindowDelegate() = default;

    /// The user gave up.
    virtual void keyReplaceCancelled(KeyReplaceWindow& window) = 0;
    /// Replace by a new random key.
    virtual void keyReplaceGenerate(KeyReplaceWindow& window) = 0;
    /// Replace by this key. @param secretKeyText  64 hexadecimal characters; wiped after the call
    virtual void keyReplaceWith(KeyReplaceWindow& window, std::string_view secretKeyText) = 0;
};

/// The sheet in which the user replaces the identity's secret key. Its delegate ends it, also when the user
/// closes it like any other window; without a delegate, cancelling ends it and a choice does nothing.
///
/// Main thread only.
class KeyReplaceWindow : public QDialog, public SignalTarget {
    Q_OBJECT

public:
    /// @param loop    must outlive this object and the worker
    /// @param worker  looks through pictures; somebody else must hold it too
    /// @param camera  shows the paper key
    KeyReplaceWindow(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera,
                     QWidget* parent = nullptr);

    void setDelegate(Weak<KeyReplaceWindowDelegate> newDelegate) { delegate = newDelegate; }
    KeyReplaceVC& keyReplaceVC() { return *_keyReplaceVC; }

    /// Begins it as a sheet of its parent's window.
    void beginSheet() { open(); }
    /// Ends the sheet; `finished` follows.
    void endSheet() { done(Rejected); }

    /// Takes the size that the page wants, up to that of the screen.
    void fit();

    // Called by the page.
    void tellCancelled();
    void tellGenerate();
    void tellReplaceWith(std::string_view secretKeyText);

    /// Escape, or the button of the frame.
    void reject() override { tellCancelled(); }

private:
    Weak<KeyReplaceWindowDelegate> delegate;
    KeyReplaceVC* _keyReplaceVC;
};
