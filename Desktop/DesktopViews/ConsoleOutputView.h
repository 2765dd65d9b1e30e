#pragma once

#include "StateKit/Date.h"

#include <functional>
#include <string_view>
#include <vector>

#include <QPlainTextEdit>
#include <QString>

/// The console's log: lines of text that can be selected and copied, and nothing else.
///
/// The log has no limit. An appended line costs the same at any length of the log, and only what is on the
/// screen is laid out; a very long line is kept in pieces, so that it does not have to be laid out
/// whole. The view follows the end while it is scrolled to the end. Main thread only.
class ConsoleOutputView : public QPlainTextEdit {
    Q_OBJECT

public:
    /// @param clock  gives the time at which a line arrives
    explicit ConsoleOutputView(std::function<Date()> clock, QWidget* parent = nullptr);

    /// Adds one line. @param text  UTF-8 from anywhere: it is shown through `DisplayText::line`
    void append(std::string_view text);

    /// The time at which the line at a position of the viewport arrived, such as "2026-11-15 15:31:51 +0000"; empty
    /// where there is no line.
    QString arrivalAt(const QPoint& position) const;

protected:
    bool event(QEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    QMimeData* createMimeDataFromSelection() const override;

private:
    /// A block of the document holds a line, or a further piece of one.
    struct Block {
        Date arrived;
        bool isContinued = false;  // belongs to the same line as the block before
    };

    bool isPinned() const;
    void scrollToEnd();
    void applyLook();
    void insertAtEnd(const QString& line, Date arrived);

    const std::function<Date()> clock;
    std::vector<Block> blocks;  // by block number; empty for an empty log, though its document has one block
};
