#include "DesktopKit/PrefsWindow.h"

#include <QVBoxLayout>

PrefsWindow::PrefsWindow(const PrefsEnvironment& environment, QWidget* parent)
    : QDialog(parent, Qt::Window), _prefsVC(new PrefsVC(environment, this)) {
    setWindowTitle(QStringLiteral("Preferences"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(_prefsVC);
    adjustSize();
}
