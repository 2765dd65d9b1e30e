#include "DesktopKit/PrefsVC.h"

#include "DesktopKit/Alert.h"
#include "DesktopViews/Look.h"
#include "QtText/QtText.h"
#include "TranscriptKit/DisplayText.h"

#include <QEvent>
#include <QSignalBlocker>

#include <utility>
#include <variant>

namespace {

/// How long an operation may take before the form shows it: buttons that turn grey for a blink would only confuse.
constexpr Seconds moment = 0.25;
constexpr int bullets = 32;

}  // namespace

PrefsVC::PrefsVC(const PrefsEnvironment& environment, QWidget* parent) : QWidget(parent), environment(environment) {
    build();
    applyLook();
}

QLabel* PrefsVC::addLabel(int row, const char* name, const QString& text) {
    auto* label = new QLabel(text, this);
    label->setObjectName(QLatin1String(name));
    label->setTextFormat(Qt::PlainText);
    grid->addWidget(label, row, 0, Qt::AlignRight);
    return label;
}

QCheckBox* PrefsVC::addCheckBox(int row, const char* name, const QString& text, void (PrefsVC::*hit)()) {
    auto* box = new QCheckBox(text, this);
    box->setObjectName(QLatin1String(name));
    grid->addWidget(box, row, 1, Qt::AlignLeft);
    // Listen to the toggle and not to clicks: a screen reader toggles the box without a click.
    connect(box, &QCheckBox::toggled, this, hit);
    return box;
}

void PrefsVC::build() {
    grid = new QGridLayout(this);
    grid->setContentsMargins(24, 22, 24, 22);
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(8);
    grid->setColumnStretch(1, 1);

    publicKeyLabel = addLabel(0, "publicKeyLabel", QStringLiteral("Public Key:"));
    publicKeyValue = new KeyField(this);
    publicKeyValue->setObjectName(QStringLiteral("publicKeyValue"));
    publicKeyValue->setAccessibleName(tr("Public Key"));
    publicKeyLabel->setBuddy(publicKeyValue);
    grid->addWidget(publicKeyValue, 0, 1);

    secretKeyLabel = addLabel(1, "secretKeyLabel", QStringLiteral("Secret Key:"));
    secretKeyExplanation = new QLabel(QString(bullets, QChar(u'•')), this);
    secretKeyExplanation->setObjectName(QStringLiteral("secretKeyExplanation"));
    secretKeyExplanation->setTextFormat(Qt::PlainText);
    secretKeyExplanation->setAccessibleName(tr("Never shown"));
    grid->addWidget(secretKeyExplanation, 1, 1, Qt::AlignLeft);

    secretKeyReplace = new QPushButton(QStringLiteral("&Replace..."), this);
    secretKeyReplace->setObjectName(QStringLiteral("secretKeyReplace"));
    secretKeyExport = new QPushButton(QStringLiteral("&Export..."), this);
    secretKeyExport->setObjectName(QStringLiteral("secretKeyExport"));
    // Otherwise Return elsewhere in the form would press one of them.
    for (QPushButton* button : {secretKeyReplace, secretKeyExport}) button->setAutoDefault(false);
    spinner = new Spinner(this);
    spinner->setObjectName(QStringLiteral("spinner"));
    spinner->setAccessibleName(tr("Waiting for the keychain"));
    spinner->setToolTip(spinner->accessibleName());
    secretKeyGrid = new QHBoxLayout;
    secretKeyGrid->setSpacing(8);
    secretKeyGrid->addWidget(secretKeyReplace);
    secretKeyGrid->addWidget(secretKeyExport);
    secretKeyGrid->addWidget(spinner);
    secretKeyGrid->addStretch();
    grid->addLayout(secretKeyGrid, 2, 1);
    connect(secretKeyReplace, &QPushButton::clicked, this, &PrefsVC::secretKeyReplaceHit);
    connect(secretKeyExport, &QPushButton::clicked, this, &PrefsVC::secretKeyExportHit);

    grid->setRowMinimumHeight(3, 8);
    notificationsLabel = addLabel(4, "notificationsLabel", QStringLiteral("Notifications:"));
    bounceIcon =
        addCheckBox(4, "bounceIcon", QStringLiteral("&Bounce dock icon on new messages"), &PrefsVC::bounceIconHit);
    chatNotifications = addCheckBox(5, "chatNotifications", QStringLiteral("Show &chat message notifications"),
                                    &PrefsVC::chatNotificationsHit);
    joinNotifications = addCheckBox(6, "joinNotifications", QStringLiteral("Show &user now online notifications"),
                                    &PrefsVC::joinNotificationsHit);
    grid->setRowStretch(7, 1);

    setTabOrder(publicKeyValue, secretKeyReplace);
    setTabOrder(secretKeyReplace, secretKeyExport);
    setTabOrder(secretKeyExport, bounceIcon);
    setTabOrder(bounceIcon, chatNotifications);
    setTabOrder(chatNotifications, joinNotifications);
    fillSwitches();
}

void PrefsVC::applyLook() {
    QPalette colors = palette();
    colors.setColor(QPalette::WindowText, Look::secondaryLabel(palette()));
    secretKeyExplanation->setPalette(colors);
    // Two lines of 32 characters.
    publicKeyValue->setMinimumWidth(publicKeyValue->widthOfLine(32));
}

void PrefsVC::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange) applyLook();
    QWidget::changeEvent(event);
}

void PrefsVC::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (event->spontaneous()) return;  // the window was only minimised
    fillPublicKey();
    fillSwitches();
}

void PrefsVC::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    // A minimised window takes its sheet along, but a window that is hidden would leave it alone on the screen.
    if (!event->spontaneous() && _keyReplaceSheet) _keyReplaceSheet->endSheet();
}

// ---- the secret store

void PrefsVC::begin() {
    if (pending++ == 0) patience.emplace(environment.loop, moment, [this] { showSlow(true); });
}

void PrefsVC::ended() {
    if (--pending > 0) return;
    patience.reset();
    showSlow(false);
}

void PrefsVC::showSlow(bool isSlow) {
    if (isSlow == spinner->isSpinning()) return;
    if (isSlow && (secretKeyReplace->hasFocus() || secretKeyExport->hasFocus())) lostFocus = window()->focusWidget();
    secretKeyReplace->setEnabled(!isSlow);
    secretKeyExport->setEnabled(!isSlow);
    if (isSlow) {
        spinner->start();
        return;
    }
    spinner->stop();
    if (lostFocus) lostFocus->setFocus();
    lostFocus.clear();
}

void PrefsVC::fillPublicKey() {
    begin();
    environment.keys.loadOrGenerate(*this, [](PrefsVC& self, const KeyAccess::Outcome& outcome) {
        const Keys* keys = std::get_if<Keys>(&outcome);
        self.publicKeyValue->setKey(keys != nullptr ? toQt(keys->publicKeyText())
                                                    : QStringLiteral("Keychain access failed"));
        self.ended();
    });
}

void PrefsVC::secretKeyExportHit() {
    if (isBusy()) return;
    begin();
    environment.keys.loadOrGenerate(*this, [](PrefsVC& self, const KeyAccess::Outcome& outcome) {
        self.ended();
        const Keys* keys = std::get_if<Keys>(&outcome);
        // A user who has closed the window meanwhile does not expect a dialog any more.
        if (keys != nullptr && self.isVisible()) self.environment.exportKey(keys->secretKey, self);
    });
}

void PrefsVC::secretKeyReplaceHit() {
    if (_keyReplaceSheet || isBusy()) return;
    _keyReplaceSheet =
        new KeyReplaceWindow(environment.loop, environment.pictureWorker, environment.makeCamera(), this);
    _keyReplaceSheet->setDelegate(Weak<KeyReplaceWindowDelegate>(this));
    connect(_keyReplaceSheet, &QDialog::finished, this, &PrefsVC::sheetEnded);
    _keyReplaceSheet->beginSheet();
}

void PrefsVC::sheetEnded() {
    // Delete the sheet later: one of its buttons may still be handling a click.
    _keyReplaceSheet->deleteLater();
    _keyReplaceSheet.clear();
    fillPublicKey();
}

void PrefsVC::keyReplaceCancelled(KeyReplaceWindow& window) { window.endSheet(); }

void PrefsVC::keyReplaceGenerate(KeyReplaceWindow& window) {
    begin();
    environment.keys.regenerate(*this, &written);
    window.endSheet();
}

void PrefsVC::keyReplaceWith(KeyReplaceWindow& window, std::string_view secretKeyText) {
    begin();
    environment.keys.replace(secretKeyText, *this, &written);
    window.endSheet();
}

void PrefsVC::written(PrefsVC& self, const KeyAccess::Outcome& outcome) {
    self.ended();
    const KeysError* error = std::get_if<KeysError>(&outcome);
    if (error == nullptr) return;
    // Show this even if the window was closed meanwhile: the user believes that the key was replaced.
    auto* alert = new Alert(QMessageBox::Warning, QStringLiteral("Could not update the keychain"),
                            DisplayText::message(error->reason()), &self);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
}

// ---- the switches

void PrefsVC::fillSwitches() {
    // Block the signal, since it would set the setting that is only shown.
    const auto show = [](QCheckBox* box, bool isOn) {
        const QSignalBlocker blocker(box);
        box->setChecked(isOn);
    };
    show(bounceIcon, environment.notifier.isBounceIconEnabled());
    show(chatNotifications, environment.notifier.isChatNotificationsEnabled());
    show(joinNotifications, environment.notifier.isJoinNotificationsEnabled());
}

void PrefsVC::bounceIconHit() { environment.notifier.setBounceIconEnabled(bounceIcon->isChecked()); }

void PrefsVC::chatNotificationsHit() {
    environment.notifier.setChatNotificationsEnabled(chatNotifications->isChecked());
}

void PrefsVC::joinNotificationsHit() {
    environment.notifier.setJoinNotificationsEnabled(joinNotifications->isChecked());
}
