#pragma once

#include <QPlainTextEdit>
#include <QString>

/// A public key to be read, compared and copied: in a box, in lines of 64, 32, 16 or 8 characters, the
/// longest that the width allows, so that it breaks at even places. What is copied from it is the bare key.
class KeyField : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit KeyField(QWidget* parent = nullptr);

    void setKey(const QString& key);
    QString key() const { return toPlainText(); }

    /// How many characters there are to a line at the present width.
    int lineLength() const;

    /// The width at which there are that many.
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
