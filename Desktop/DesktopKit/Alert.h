#pragma once

#include <QMessageBox>
#include <QString>
#include <QWidget>

/// A message box that shows both its texts as plain text.
///
/// In the toolkit's own box only the first text can be set to plain text. The second may then be taken for
/// mark-up, and it may contain words of a service, a file name or another person.
class Alert : public QMessageBox {
public:
    /// @param text  safe to be shown, as is `more`
    /// @param more  stands below it, in plain weight; may be empty
    Alert(Icon icon, const QString& text, const QString& more, QWidget* parent = nullptr);
};
