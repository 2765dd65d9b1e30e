#pragma once

#include "TranscriptKit/Transcript.h"

#include <functional>
#include <string>

#include <QAbstractScrollArea>
#include <QString>
#include <QUrl>

/// Shows a transcript as a list of rows whose text can be selected and copied.
///
/// Made for long histories: only rows near the screen are laid out; their heights are measured then and
/// kept for that width, and rows far away have an estimate, which is corrected without moving what is
/// being read. One more row at the end costs the same at any length.
///
/// When a transcript is set, the view follows its end only if the reader was within 4 points of it and
/// the change was a pure addition at the end; anything else leaves alone what is being read.
class ChatterView : public QAbstractScrollArea {
    Q_OBJECT

public:
    /// Who speaks, as the rows say it.
    enum class Authors {
        emoji,  // the emoji alone, for a talk of two
        named,  // the first row of each block carries the display name, in the author's colour
    };

    explicit ChatterView(Authors authors, QWidget* parent = nullptr);
    ~ChatterView() override;

    void setTranscript(Transcript transcript);
    const Transcript& transcript() const { return _transcript; }

    /// Gives the display name of an author, as it came; the view makes it safe to show. Asked when a row
    /// is filled; without one, and for accessibility in both kinds, authors are "Anonymous".
    void setNameOf(std::function<std::string(const std::string& author)> nameOf);
    /// Rows ask for their names again.
    void namesChanged();

    /// What opens a link; the desktop's own way unless set. Only http and https links reach it.
    void setOpenLink(std::function<void(const QUrl&)> openLink);
    /// What time it is, for the headings of days, which change at midnight.
    void setClock(std::function<Date()> clock);

    bool isAtEnd() const;
    void scrollToEnd();

public Q_SLOTS:
    /// Puts what is selected on the clipboard: the texts of messages, a line each.
    void copy();
    void selectAll();

private:
    // up to the implementation
    Transcript _transcript;
};
