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

/// Does what the user has chosen in the sheet, and ends it.
class KeyReplaceWindowDelegate {
public:
    virtual ~KeyReplaceWindowDelegate() = default;

    /// The user gave up.
    virtual void keyReplaceCancelled(KeyReplaceWindow& window) = 0;
    /// Replace by a new random key.
    virtual void keyReplaceGenerate(KeyReplaceWindow& window) = 0;
    /// Replace by this key. @param secretKeyText  64 hexadecimal characters; wiped behind the call
    virtual void keyReplaceWith(KeyReplaceWindow& window, std::string_view secretKeyText) = 0;
};

/// The sheet in which the user replaces the identity's secret key. It ends through its delegate, also when it
/// is closed like any other window; without one nobody is told.
///
/// Main thread only.
class KeyReplaceWindow : public QDialog, public SignalTarget {
    Q_OBJECT

public:
    /// @param loop    outlives this, and the worker
    /// @param worker  looks through pictures; somebody else holds it too
    /// @param camera  what looks at the paper key
    KeyReplaceWindow(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera,
                     QWidget* parent = nullptr);

    void setDelegate(Weak<KeyReplaceWindowDelegate> newDelegate) { delegate = newDelegate; }
    KeyReplaceVC& keyReplaceVC() { return *_keyReplaceVC; }

    /// Begins it as a sheet of its parent's window.
    void beginSheet() { open(); }
    /// Ends it; `finished` follows.
    void endSheet() { done(Rejected); }

    /// Takes the size that the page wants, as far as the screen has it.
    void fit();

    // What the page says.
    void tellCancelled();
    void tellGenerate();
    void tellReplaceWith(std::string_view secretKeyText);

    /// Escape, or the button of the frame.
    void reject() override { tellCancelled(); }

private:
    Weak<KeyReplaceWindowDelegate> delegate;
    KeyReplaceVC* _keyReplaceVC;
};
