#pragma once

#include <QFont>
#include <QString>
#include <QWidget>

/// A label of one line that shows its text plainly and cuts it off where there is no room for it; the
/// tool-tip then has the whole. It may become as narrow as its neighbours want.
class ElidedLabel : public QWidget {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    /// @param text  one line, fit to be shown. It is the accessible name too.
    void setText(const QString& text);
    const QString& text() const { return _text; }

    void setAlignment(Qt::Alignment alignment);
    /// Leaves so much free at the left.
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
