#pragma once

#include "DesktopKit/PrefsVC.h"

#include <QDialog>

/// The window "Preferences", of which there is one: closing it, by Escape too, only hides it.
///
/// It has no menu bar, and neither shows nor places itself. Main thread only; what the environment refers to
/// must outlive it.
class PrefsWindow : public QDialog {
    Q_OBJECT

public:
    explicit PrefsWindow(const PrefsEnvironment& environment, QWidget* parent = nullptr);

    /// The name under which its place is remembered.
    static constexpr const char* identifier = "PrefsWindowID";
    PrefsVC& prefsVC() { return *_prefsVC; }

private:
    PrefsVC* _prefsVC;
};
