#pragma once

#include "StateKit/SignalTarget.h"

#include <string>

#include <QPlainTextEdit>
#include <QWidget>

class ConnectionView;

/// Receives the texts that are typed into an `InputView`.
class InputViewDelegate {
public:
    /// @param text  UTF-8, as typed: nothing is trimmed, lines end in "\n", and it may be empty
    /// @return whether to clear the input
    virtual bool didSubmit(const std::string& text) = 0;

protected:
    ~InputViewDelegate() = default;
};

/// The editor inside an `InputView`: plain text, without frame or background.
///
/// Return and Enter submit; with a modifier they add a line. While an input method composes, Return
/// ends the composition. Tab goes to the next control.
class InputTextView : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit InputTextView(QWidget* parent = nullptr);

    /// The width at the right that is kept free of text, in pixels.
    int rightContentInset() const { return rightInset; }
    void setRightContentInset(int inset);

    /// The text as typed, with "\n" between lines.
    QString text() const;

Q_SIGNALS:
    /// Emitted when Return or Enter was pressed without a modifier.
    void newlineCommand();

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void applyFont();
    void applyMargins();
    void fitWrapping(int position, int removed, int added);

    int rightInset = 0;
};

/// The text entry at the bottom of a chat, with a pill "Offline" at its right end.
///
/// It knows no session: the owner calls `setOffline`, and the delegate gets the text. The text stays editable
/// while offline. The owner sets the height, 40 points in a chat; a longer text scrolls. Main thread only.
class InputView : public QWidget, public SignalTarget {
    Q_OBJECT

public:
    explicit InputView(QWidget* parent = nullptr);

    /// The delegate is held weakly. Without one, submitted texts are dropped.
    void setDelegate(Weak<InputViewDelegate> delegate) { this->delegate = delegate; }

    bool isOffline() const { return _isOffline; }
    void setOffline(bool isOffline);

    InputTextView& textView() { return *_textView; }
    /// The same object as `textView`, since it scrolls its own text.
    InputTextView& scroll() { return *_textView; }
    ConnectionView& connection() { return *_connection; }

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void submit();
    void makeRoom();

    Weak<InputViewDelegate> delegate;
    bool _isOffline = false;
    InputTextView* _textView;
    ConnectionView* _connection;
};
