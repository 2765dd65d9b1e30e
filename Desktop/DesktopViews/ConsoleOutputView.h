#pragma once

#include "StateKit/Date.h"

#include <functional>
#include <string_view>
#include <vector>

#include <QPlainTextEdit>
#include <QString>

/// The console's log: lines of text that can be selected and copied, and nothing else.
///
/// It has no limit. An appended line costs the same at any length of the log, and only what is on the
/// screen is laid out; a very long line is kept in pieces, so that it does not have to be laid out
/// whole. Follows its end exactly when it stands there. Main thread only.
class ConsoleOutputView : public QPlainTextEdit {
    Q_OBJECT

public:
    /// @param clock  what time it is, when a line arrives
    explicit ConsoleOutputView(std::function<Date()> clock, QWidget* parent = nullptr);

    /// Adds one line. @param text  UTF-8, as it came: what could steer its neighbours is shown escaped
    void append(std::string_view text);

    /// When the line at that position of the viewport arrived, such as "2026-11-15 15:31:51 +0000"; empty
    /// beside the lines.
    QString arrivalAt(const QPoint& position) const;

protected:
    bool event(QEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    QMimeData* createMimeDataFromSelection() const override;

private:
    /// What a block of the document is: a line, or a further piece of one.
    struct Block {
        Date arrived;
        bool isContinued = false;  // with the text of the block before, one line
    };

    bool isPinned() const;
    void scrollToEnd();
    void applyLook();
    void insertAtEnd(const QString& line, Date arrived);

    const std::function<Date()> clock;
    std::vector<Block> blocks;  // by block number; none for the one block of an empty log
};
