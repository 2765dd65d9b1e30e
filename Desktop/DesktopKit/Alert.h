#pragma once

#include <QMessageBox>
#include <QString>
#include <QWidget>

/// A message box whose texts are shown as they are.
///
/// The toolkit's own looks after the first of its texts only, and guesses at mark-up in the other, which may
/// hold what a service, a file name or somebody else said.
class Alert : public QMessageBox {
public:
    /// @param text  fit to be shown, as is `more`
    /// @param more  below it, in plain weight; may be empty
    Alert(Icon icon, const QString& text, const QString& more, QWidget* parent = nullptr);
};
