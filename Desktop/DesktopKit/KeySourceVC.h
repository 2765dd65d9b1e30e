#pragma once

#include "StateKit/SignalTarget.h"

#include <QLabel>
#include <QRadioButton>
#include <QWidget>

class KeySourceVC;

class KeySourceVCDelegate {
public:
    virtual ~KeySourceVCDelegate() = default;
    virtual void keySourceChanged(KeySourceVC& sourceVC) = 0;
};

/// The page on which the user chooses where a new secret key comes from.
///
/// Main thread only.
class KeySourceVC : public QWidget {
    Q_OBJECT

public:
    enum class Source { generate, scan };

    explicit KeySourceVC(QWidget* parent = nullptr);

    Source source() const { return _source; }
    void setDelegate(Weak<KeySourceVCDelegate> newDelegate) { delegate = newDelegate; }

protected:
    void changeEvent(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QLabel* addCaption(const QString& text, QRadioButton* radio);
    void applyLook();
    void choose(Source chosen);

    Source _source = Source::generate;
    Weak<KeySourceVCDelegate> delegate;
    QRadioButton* generateRadio;
    QLabel* generateCaption;
    QRadioButton* scanRadio;
    QLabel* scanCaption;
};
