#pragma once

#include "StateKit/SignalTarget.h"

#include <string>

#include <QWidget>

class ConnectionView;
class ConsoleInputField;
class QLabel;

/// Receives the commands that are typed into a `ConsoleInputView`.
class ConsoleInputViewDelegate {
public:
    /// @param text  UTF-8; one line, never empty
    virtual void didSubmit(const std::string& text) = 0;

protected:
    ~ConsoleInputViewDelegate() = default;
};

/// The console's command line: a prompt, a field, and the pill "Offline" at the right end.
///
/// Return hands the text to the delegate, unless it is empty, and clears the field. The field stays editable
/// while offline. Main thread only.
class ConsoleInputView : public QWidget {
    Q_OBJECT

public:
    explicit ConsoleInputView(QWidget* parent = nullptr);

    /// The delegate is held weakly.
    void setDelegate(Weak<ConsoleInputViewDelegate> delegate) { this->delegate = delegate; }

    bool isOffline() const { return _isOffline; }
    void setOffline(bool isOffline);

    ConsoleInputField& textField() { return *_textField; }
    ConnectionView& connection() { return *_connection; }

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void submit();
    void applyLook();
    void arrange();

    Weak<ConsoleInputViewDelegate> delegate;
    bool _isOffline = false;
    QLabel* textPrefix;
    ConsoleInputField* _textField;
    ConnectionView* _connection;
};
