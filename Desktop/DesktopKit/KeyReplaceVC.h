#pragma once

#include "DesktopKit/KeyScanVC.h"
#include "DesktopKit/KeySourceVC.h"
#include "StateKit/SignalTarget.h"

#include <QPushButton>
#include <QStackedWidget>
#include <QWidget>

class KeyReplaceWindow;

/// The content of the sheet that replaces the secret key: the choice of a source, and the scanner if that is
/// a paper key. It collects what the user wants and tells the delegate of its window; it writes nothing.
///
/// There is no way back from the scanner: the user must cancel and begin anew. Main thread only.
class KeyReplaceVC : public QWidget, public SignalTarget, public KeySourceVCDelegate, public KeyScanVCDelegate {
    Q_OBJECT

public:
    enum class Stage { source, scanner, scanned };

    /// @param wc      the sheet; must outlive this object
    /// @param scanVC  the second page; this object takes ownership
    KeyReplaceVC(KeyReplaceWindow& wc, KeyScanVC* scanVC);

    Stage stage() const { return _stage; }
    KeySourceVC& sourceVC() { return *_sourceVC; }
    KeyScanVC& scanVC() { return *_scanVC; }

    void replaceHit();
    void cancelHit();

    void keySourceChanged(KeySourceVC& sourceVC) override;
    void keyScanned(KeyScanVC& scanVC) override;

private:
    void select(QWidget* page);
    void goToScanner();
    void replaceByScannedKey();

    KeyReplaceWindow& wc;
    Stage _stage = Stage::source;
    QStackedWidget* stageBox;
    QWidget* stageScroll = nullptr;
    QPushButton* replaceButton;
    QPushButton* cancelButton;
    KeySourceVC* _sourceVC;
    KeyScanVC* _scanVC;
};
