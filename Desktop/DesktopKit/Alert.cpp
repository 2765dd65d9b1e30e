#include "DesktopKit/Alert.h"

#include <QApplication>
#include <QLabel>

Alert::Alert(Icon icon, const QString& text, const QString& more, QWidget* parent)
    : QMessageBox(icon, QApplication::applicationName(), text, NoButton, parent) {
    setTextFormat(Qt::PlainText);
    if (!more.isEmpty()) setInformativeText(more);
    for (QLabel* label : findChildren<QLabel*>()) label->setTextFormat(Qt::PlainText);
    setDefaultButton(addButton(Ok));
}
