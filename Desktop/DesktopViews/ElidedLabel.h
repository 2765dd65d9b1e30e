#pragma once

#include <QFont>
#include <QString>
#include <QWidget>

/// A label of one line that shows plain text, and cuts it off with "…" if there is too little room; the
/// tool-tip then has the whole text. A layout may make the label as narrow as it likes.
class ElidedLabel : public QWidget {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    /// @param text  one line, already safe to show. It is the accessible name too.
    void setText(const QString& text);
    const QString& text() const { return _text; }

    void setAlignment(Qt::Alignment alignment);
    /// Leaves so many pixels free at the left.
    void setIndent(int indent);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QString _text;
    Qt::Alignment alignment = Qt::AlignLeft;
    int indent = 0;
};
