#pragma once

#include <QPlainTextEdit>
#include <QString>

/// Shows a public key in a box, to be read, compared and copied. Its lines have 64, 32, 16 or 8 characters, the
/// most that the width allows, so that all are equally long. Copying gives the bare key, without line ends.
class KeyField : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit KeyField(QWidget* parent = nullptr);

    void setKey(const QString& key);
    QString key() const { return toPlainText(); }

    /// The number of characters in a line at the present width.
    int lineLength() const;

    /// The width at which a line has `characters` characters.
    int widthOfLine(int characters) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void applyLook();
    void fit();

    double characterWidth = 1;
    int fittedLength = 0;
};
