#pragma once

#include "DesktopKit/KeyScanVC.h"
#include "DesktopKit/KeySourceVC.h"
#include "StateKit/SignalTarget.h"

#include <QPushButton>
#include <QStackedWidget>
#include <QWidget>

class KeyReplaceWindow;

/// The way to another secret key: the choice of its source, and where that is a paper key, its scanning.
/// It collects what the user wants and tells the delegate of its window; it writes nothing.
///
/// There is no way back from the scanner; one cancels and begins anew. Main thread only.
class KeyReplaceVC : public QWidget, public SignalTarget, public KeySourceVCDelegate, public KeyScanVCDelegate {
    Q_OBJECT

public:
    enum class Stage { source, scanner, scanned };

    /// @param wc      the sheet, which outlives this
    /// @param scanVC  the second page; this takes it
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
