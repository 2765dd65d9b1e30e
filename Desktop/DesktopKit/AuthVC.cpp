#include "DesktopKit/AuthVC.h"

#include "DesktopKit/ShareMenu.h"
#include "DesktopViews/Icons.h"
#include "DesktopViews/KeyField.h"
#include "DesktopViews/Look.h"
#include "QtText/QtText.h"
#include "Text/Url.h"
#include "VimbleKit/Endpoint.h"
#include "VimbleKit/Kit.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>
#include <initializer_list>
#include <utility>

namespace {

constexpr int margin = 16;
constexpr int widest = 300;  // of the centred column in a large window; a key fits on two lines

/// Whether an address names a host. A text such as "host:port" does not: it is read as a URL of the scheme "host".
bool namesHost(const Endpoint& endpoint) {
    const auto url = Url::parse(endpoint.url());
    return url && url->host && !url->host->empty();
}

QString hostOfDefault() {
    const auto url = Url::parse(Endpoint::defaultEndpoint().url());
    return toQt(url->host.value());
}

}  // namespace

const QString AuthVC::accessMessage = QStringLiteral(
    "For access, send your public key shown below to Tolvik. Use a trusted communication tool to be confident the key "
    "was not tampered with in transit.");
const QString AuthVC::defaultServer = hostOfDefault();

AuthVC::LocalState::LocalState(const State* state)
    : publicKey(state ? state->publicKey : std::string()),
      endpointInput((state && state->endpoint ? *state->endpoint : Endpoint::defaultEndpoint()).displayString()) {}

AuthVC::AuthVC(Kit& kit, QWidget* parent, std::optional<std::string> previewKey)
    : QScrollArea(parent), kit(kit), previewKey(std::move(previewKey)), state(nullptr) {
    build();
    applyLook();
    copyField->setKey(toQt(this->previewKey.value_or(state.publicKey)));
    serverCombo->setEditText(toQt(state.endpointInput));
    updateButton();
    if (!this->previewKey)
        kit.observeModel<LocalState>(*this, [](AuthVC& self, const LocalState& state) { self.apply(state); });
}

// The controls report changes even while they are destroyed, so destroy them before the fields that this uses.
AuthVC::~AuthVC() { delete takeWidget(); }

void AuthVC::setOpenUrl(std::function<bool(const QUrl&)> openUrl) { shareMenu->setOpenUrl(std::move(openUrl)); }

void AuthVC::build() {
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setFocusPolicy(Qt::NoFocus);
    // Show the window's own background instead of that of a list.
    viewport()->setAutoFillBackground(false);

    container = new QWidget;
    container->setObjectName(QStringLiteral("container"));
    appIcon = new QLabel(container);
    appIcon->setObjectName(QStringLiteral("appIcon"));
    appIcon->setAlignment(Qt::AlignCenter);
    appIcon->setAccessibleName(QStringLiteral("Vimble"));
    expLabel = new QLabel(accessMessage, container);
    expLabel->setObjectName(QStringLiteral("expLabel"));
    expLabel->setTextFormat(Qt::PlainText);
    expLabel->setWordWrap(true);
    expLabel->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    copyField = new KeyField(container);
    copyField->setObjectName(QStringLiteral("copyField"));
    copyField->setAccessibleName(QStringLiteral("Your public key"));
    shareButton = new QPushButton(QStringLiteral("Share"), container);
    shareButton->setObjectName(QStringLiteral("shareButton"));
    shareButton->setAccessibleName(QStringLiteral("Share your public key"));
    serverCombo = new QComboBox(container);
    serverCombo->setObjectName(QStringLiteral("serverCombo"));
    // On this desktop the accessible name of a combo box is what it shows, so the description says what it is for.
    serverCombo->setAccessibleName(QStringLiteral("Server"));
    serverCombo->setAccessibleDescription(QStringLiteral("Server"));
    serverCombo->setEditable(true);
    serverCombo->setInsertPolicy(QComboBox::NoInsert);
    serverCombo->setMaxVisibleItems(5);
    serverCombo->addItem(defaultServer);
    serverCombo->setCurrentIndex(-1);
    serverCombo->setMinimumContentsLength(1);
    serverCombo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    serverCombo->installEventFilter(this);
    connectButton = new QPushButton(QStringLiteral("Connect"), container);
    connectButton->setObjectName(QStringLiteral("connectButton"));
    connectButton->setDefault(true);
    hintLabel = new QLabel(container);
    hintLabel->setObjectName(QStringLiteral("hintLabel"));
    hintLabel->setTextFormat(Qt::PlainText);
    hintLabel->setWordWrap(true);
    hintLabel->setAlignment(Qt::AlignHCenter);
    hintLabel->hide();
    shareMenu = new ShareMenu(this);
    shareMenu->setObjectName(QStringLiteral("shareMenu"));
    shareMenu->onMailFailed = [this] {
        showHint(QStringLiteral("No program for e-mail could be opened. Copy the key instead."));
    };

    auto* column = new QVBoxLayout;
    column->setContentsMargins(margin, margin, margin, margin);
    column->setSpacing(8);
    column->addStretch(2);
    column->addWidget(appIcon);
    column->addWidget(expLabel);
    column->addWidget(copyField);
    column->addWidget(shareButton, 0, Qt::AlignHCenter);
    column->addSpacing(10);
    column->addWidget(serverCombo);
    column->addWidget(hintLabel);
    column->addWidget(connectButton);
    column->addStretch(3);
    container->setLayout(column);
    container->setMaximumWidth(widest + 2 * margin);
    auto* screen = new QWidget;
    auto* row = new QHBoxLayout(screen);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(container);
    setWidget(screen);
    screen->setAutoFillBackground(false);
    setFocusProxy(connectButton);

    setTabOrder(serverCombo, connectButton);
    setTabOrder(connectButton, copyField);
    setTabOrder(copyField, shareButton);
    connect(connectButton, &QPushButton::clicked, this, &AuthVC::connectHit);
    connect(shareButton, &QPushButton::clicked, this, &AuthVC::shareHit);
    connect(serverCombo->lineEdit(), &QLineEdit::returnPressed, this, &AuthVC::connectHit);
    connect(serverCombo->lineEdit(), &QLineEdit::textEdited, this, [this] { pickedServer.reset(); });
    connect(serverCombo, &QComboBox::activated, this, [this](int index) {
        if (index >= 0) pickedServer = serverCombo->itemText(index);
        updateButton();
    });
    connect(serverCombo, &QComboBox::editTextChanged, this, [this] {
        hintLabel->hide();
        updateButton();
    });
}

void AuthVC::applyLook() {
    const int iconSide = static_cast<int>(std::lround(Look::scaled(48)));
    appIcon->setPixmap(Icons::app().pixmap(QSize(iconSide, iconSide), devicePixelRatioF()));
    shareButton->setIcon(Icons::symbol(QStringLiteral("share"), palette()));
    expLabel->setFont(Look::font(12));
    hintLabel->setFont(Look::font(11));
    for (QWidget* control : std::initializer_list<QWidget*>{serverCombo, connectButton, shareButton})
        control->setFont(Look::font(13));
}

void AuthVC::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange) applyLook();
    QScrollArea::changeEvent(event);
}

void AuthVC::keyPressEvent(QKeyEvent* event) {
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    // In the combo box, the text field's own signal reports Return.
    if (isReturn && !isServerBeingTyped())
        connectButton->click();
    else
        QScrollArea::keyPressEvent(event);
}

bool AuthVC::eventFilter(QObject* watched, QEvent* event) {
    // Scrolling the screen must not change the server when the pointer happens to be over the combo box.
    if (watched == serverCombo && event->type() == QEvent::Wheel) {
        event->ignore();
        return true;
    }
    return QScrollArea::eventFilter(watched, event);
}

void AuthVC::apply(const LocalState& newState) {
    state = newState;
    copyField->setKey(toQt(state.publicKey));
    if (!isServerBeingTyped()) {
        pickedServer.reset();
        serverCombo->setEditText(toQt(state.endpointInput));
    }
    updateButton();
}

std::string AuthVC::serverInput() const { return fromQt(pickedServer.value_or(serverCombo->currentText())); }

bool AuthVC::isServerBeingTyped() const {
    const QWidget* focus = window()->focusWidget();
    return focus && (focus == serverCombo || focus == serverCombo->lineEdit());
}

void AuthVC::updateButton() { connectButton->setEnabled(Endpoint::parse(serverInput()).has_value()); }

void AuthVC::showHint(const QString& text) {
    hintLabel->setText(text);
    hintLabel->show();
}

void AuthVC::connectHit() {
    const auto endpoint = Endpoint::parse(serverInput());
    if (!endpoint || previewKey) return;
    if (!namesHost(*endpoint)) {
        showHint(QStringLiteral(
            "This names no host. With a port, give a whole address, such as https://chat.example.org:8443"));
        return;
    }
    kit.setEndpoint(*endpoint);
    kit.connect();
}

void AuthVC::shareHit() {
    shareMenu->setKey(toQt(state.publicKey));
    shareMenu->popup(shareButton->mapToGlobal(QPoint(0, shareButton->height())));
}
