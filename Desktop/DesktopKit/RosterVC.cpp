#include "DesktopKit/RosterVC.h"

#include "DesktopKit/AppUpdater.h"
#include "DesktopKit/PersonView.h"
#include "DesktopKit/RoomRow.h"
#include "DesktopKit/RosterModel.h"
#include "DesktopKit/RosterTableView.h"
#include "DesktopViews/ElidedLabel.h"
#include "DesktopViews/Look.h"
#include "DesktopViews/Spinner.h"
#include "DesktopViews/StatusPopUp.h"
#include "QtText/QtText.h"
#include "StateKit/Log.h"
#include "TranscriptKit/DisplayText.h"
#include "VimbleKit/Kit.h"

#include <QAction>
#include <QClipboard>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QScrollBar>
#include <QVBoxLayout>

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

void say(std::string_view line) {
    DebugLines::print([line] { return line; });
}

}  // namespace

RosterVC::LocalState::LocalState(const State* state) {
    if (!state) return;
    isOnline = state->connection == Connection::online;
    // Take the online people in the order of `State::roster`, without sorting the others.
    for (const auto& [key, person] : state->people)
        if (person.isOnline) roster.push_back(person);
    std::sort(roster.begin(), roster.end(), [](const Person& a, const Person& b) {
        const int order = a.displayName().compare(b.displayName());
        return order != 0 ? order < 0 : a.publicKey < b.publicKey;
    });
    if (const Person* me = state->me()) user = *me;
}

RosterVC::LocalUpdateState::LocalUpdateState(const UpdateState* state) {
    if (!state) return;
    readyVersion = state->readyUpdate ? state->readyUpdate->version : state->debugReadyVersion;
    if (!state->manualCheck) return;
    const auto& status = state->manualCheck->value;
    if (const auto* unsupported = std::get_if<ManualCheckStatus::UnsupportedSystemVersion>(&status))
        toast = UpdateToast::MinimumSystemVersionRequired{unsupported->requiredVersion};
    else if (std::holds_alternative<ManualCheckStatus::Checking>(status))
        toast = UpdateToast::Checking{};
    else
        toast = UpdateToast::NoUpdateAvailable{};
}

RosterVC::RosterVC(Kit& kit, QWidget* parent) : QWidget(parent) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    buildHeader();
    buildList(kit);
    applyLook();
    setFocusProxy(table);
    kit.observeModel<LocalState>(*this, [](RosterVC& self, const LocalState& state) { self.apply(state); });
}

// The list reports changes even while it is destroyed, so destroy it before the fields that this uses.
RosterVC::~RosterVC() { delete table; }

void RosterVC::buildHeader() {
    meEmojiLabel = new ElidedLabel(this);
    meEmojiLabel->setObjectName(QStringLiteral("meEmojiLabel"));
    meEmojiLabel->setAlignment(Qt::AlignHCenter);
    meNameLabel = new ElidedLabel(this);
    meNameLabel->setObjectName(QStringLiteral("meNameLabel"));
    meNameLabel->setText(QStringLiteral("•••"));
    // Align the name with the text of the frameless pop-up.
    meNameLabel->setIndent(StatusPopUp::textIndent);
    meStatusDropdown = new StatusPopUp(this);
    meStatusDropdown->setObjectName(QStringLiteral("meStatusDropdown"));
    // On this desktop the accessible name of a pop-up is what it shows, so the description says what it is for.
    meStatusDropdown->setAccessibleName(QStringLiteral("Status"));
    meStatusDropdown->setAccessibleDescription(QStringLiteral("Status"));
    connect(meStatusDropdown, &QComboBox::activated, this, [this] { statusDropdownHit(); });
    spinner = new Spinner(this);
    spinner->setObjectName(QStringLiteral("spinner"));
    divider = new QFrame(this);
    divider->setObjectName(QStringLiteral("divider"));
    divider->setFixedHeight(1);
    divider->setAutoFillBackground(true);

    auto* words = new QVBoxLayout;
    words->setSpacing(1);
    words->addWidget(meNameLabel);
    auto* status = new QHBoxLayout;
    status->setSpacing(2);
    status->addWidget(meStatusDropdown);
    status->addWidget(spinner);
    status->addStretch();
    words->addLayout(status);
    auto* header = new QHBoxLayout;
    header->setContentsMargins(8, 8, 8, 7);
    header->setSpacing(5);
    header->addWidget(meEmojiLabel);
    header->addLayout(words, 1);
    auto* column = static_cast<QVBoxLayout*>(layout());
    column->addLayout(header);
    column->addWidget(divider);
}

void RosterVC::buildList(Kit& kit) {
    roomRow = new RoomRow(kit, this);
    roomRow->setObjectName(QStringLiteral("roomRow"));
    connect(roomRow, &QAbstractButton::clicked, this, [this] {
        if (const auto open = openRoom) open();
    });
    model = new RosterModel(this);
    table = new RosterTableView(this);
    table->setObjectName(QStringLiteral("table"));
    table->setModel(model);
    table->setItemDelegate(new PersonView(table));
    table->onActivate = [this] { openRow(-1); };
    table->onClick = [this](int row) { tableRowHit(row); };
    table->onDoubleClick = [this](int row) { tableRowDoubleClick(row); };
    table->onContextMenu = [this](int row, QPoint position) { showContextMenu(row, position); };
    table->onLeaveUpwards = [this] { roomRow->setFocus(Qt::BacktabFocusReason); };
    roomRow->onLeaveDownwards = [this] {
        if (!state.roster.empty() && table->selectedRow() < 0) table->selectRow(0);
        table->setFocus(Qt::TabFocusReason);
    };
    // Once anybody is selected again, forget whom an earlier click deselected.
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (table->selectedRow() >= 0) deselectedKey.clear();
    });

    context = new QMenu(this);
    context->setObjectName(QStringLiteral("context"));
    contextCopy = context->addAction(QStringLiteral("Copy Public Key"));
    contextCopy->setObjectName(QStringLiteral("contextCopy"));
    connect(context, &QMenu::aboutToShow, this, &RosterVC::menuNeedsUpdate);
    connect(contextCopy, &QAction::triggered, this, &RosterVC::copyPublicKeyHit);

    // The room's row and the people's share one background.
    auto* list = new QWidget(this);
    list->setBackgroundRole(QPalette::Base);
    list->setAutoFillBackground(true);
    auto* rows = new QVBoxLayout(list);
    rows->setContentsMargins(0, 5, 0, 0);
    rows->setSpacing(0);
    troubleLabel = new QLabel(list);
    troubleLabel->setObjectName(QStringLiteral("troubleLabel"));
    troubleLabel->setTextFormat(Qt::PlainText);
    troubleLabel->setWordWrap(true);
    troubleLabel->setContentsMargins(12, 8, 12, 8);
    // The window may be narrower than the words, which are cut off then.
    troubleLabel->setMinimumWidth(1);
    troubleLabel->hide();
    rows->addWidget(roomRow);
    rows->addWidget(troubleLabel);
    rows->addWidget(table, 1);
    toastGround = new QWidget(list);
    toastGround->setFixedHeight(0);
    rows->addWidget(toastGround);
    static_cast<QVBoxLayout*>(layout())->addWidget(list, 1);
}

void RosterVC::applyLook() {
    QPalette line;
    line.setColor(QPalette::Window, Look::divider(palette()));
    divider->setPalette(line);
    meEmojiLabel->setFont(Look::font(20));
    meEmojiLabel->setFixedWidth(static_cast<int>(Look::scaled(28)));
    meNameLabel->setFont(Look::font(13, QFont::Medium));
    meStatusDropdown->setFont(Look::font(11));
    troubleLabel->setFont(Look::font(11));
    QPalette words = palette();
    words.setColor(QPalette::WindowText, Look::secondaryLabel(palette()));
    troubleLabel->setPalette(words);
}

void RosterVC::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange) {
        applyLook();
        table->doItemsLayout();
    }
    QWidget::changeEvent(event);
}

void RosterVC::apply(const LocalState& newState) {
    state = newState;
    meNameLabel->setText(state.user ? DisplayText::person(*state.user) : QStringLiteral("•••"));
    meEmojiLabel->setText(state.user ? DisplayText::name(state.user->displayEmoji()) : QString());
    if (state.isOnline)
        transitionOnline();
    else
        transitionOffline();
    reload();
}

void RosterVC::observeUpdates(AppUpdater& updater, MainLoop& loop) {
    readyUpdateToast = new UpdateToast(loop, ToastView::Style::attached, this);
    readyUpdateToast->setObjectName(QStringLiteral("readyUpdateToast"));
    statusToast = new UpdateToast(loop, ToastView::Style::floating, this);
    statusToast->setObjectName(QStringLiteral("statusToast"));
    // The bar stays up, and must not cover the last of the people.
    readyUpdateToast->onVisibilityChanged = [this](const ToastView& toast) {
        toastGround->setFixedHeight(toast.isPresented() ? toast.barHeight() : 0);
    };
    readyUpdateToast->onInstall = [&updater] { updater.installUpdate(); };
    statusToast->onDismissRequested = [this, &updater] {
        statusToast->setMessage(std::nullopt);
        updater.dismissManualCheck();
    };
    updater.observeModel<LocalUpdateState>(*this,
                                           [](RosterVC& self, const LocalUpdateState& state) { self.apply(state); });
}

void RosterVC::apply(const LocalUpdateState& newState) {
    std::optional<UpdateToast::Message> ready;
    if (newState.readyVersion) ready = UpdateToast::ReadyUpdate{*newState.readyVersion};
    readyUpdateToast->setMessage(ready);
    statusToast->setMessage(newState.toast);
}

void RosterVC::setRoomOpen(bool isOpen) { roomRow->setRoomOpen(isOpen); }

void RosterVC::showTrouble(const std::string& text) {
    constexpr qsizetype most = 300;
    QString shown = DisplayText::line(text);
    if (shown.size() > most) shown = shown.left(most) + QStringLiteral("…");
    troubleLabel->setText(shown);
    fitTrouble();
}

void RosterVC::fitTrouble() { troubleLabel->setVisible(!state.isOnline && !troubleLabel->text().isEmpty()); }

void RosterVC::transitionOnline() {
    say("Transitioning Online");
    meStatusDropdown->setArrowVisible(true);
    meStatusDropdown->setEnabled(true);
    meStatusDropdown->setItems({QStringLiteral("Available"), QStringLiteral("Idle"), QStringLiteral("Away")});
    spinner->stop();
    troubleLabel->clear();
    fitTrouble();
}

void RosterVC::transitionOffline() {
    say("Transitioning Offline");
    meStatusDropdown->setArrowVisible(false);
    meStatusDropdown->setEnabled(false);
    meStatusDropdown->setItems({QStringLiteral("Offline")});
    spinner->start();
}

void RosterVC::reload() {
    const Person* person = model->personAt(table->selectedRow());
    const std::string selected = person ? person->publicKey : std::string();
    // Keep the topmost visible person where they are while others come and go above; but if the list is not
    // scrolled, stay at its beginning.
    const int scrolled = table->verticalScrollBar()->value();
    const QModelIndex top = table->indexAt({0, 0});
    const Person* topPerson = scrolled > 0 ? model->personAt(top.row()) : nullptr;
    const std::string topKey = topPerson ? topPerson->publicKey : std::string();
    const int topDistance = top.isValid() ? table->visualRect(top).top() : 0;

    model->setPeople(state.roster);
    table->doItemsLayout();

    if (!selected.empty()) table->selectRow(model->rowOf(selected));
    const int topRow = topKey.empty() ? -1 : model->rowOf(topKey);
    table->verticalScrollBar()->setValue(topRow < 0 ? scrolled : topRow * PersonView::rowHeight() - topDistance);
}

void RosterVC::statusDropdownHit() { say("Status Dropdown Hit"); }

void RosterVC::tableRowHit(int clickedRow) {
    if (clickedRow != -1) return;
    const Person* person = model->personAt(table->selectedRow());
    table->selectRow(-1);
    deselectedKey = person ? person->publicKey : std::string();
}

void RosterVC::tableRowDoubleClick(int clickedRow) {
    // A double-click beside the rows opens the selected person, whom its first click has deselected.
    if (clickedRow == -1 && !deselectedKey.empty()) table->selectRow(model->rowOf(deselectedKey));
    openRow(clickedRow);
}

void RosterVC::openRow(int row) {
    const Person* found = model->personAt(row == -1 ? table->selectedRow() : row);
    if (!found) return;
    const Person person = *found;  // a copy, since opening may change the list
    if (delegate) delegate->openConversation(person);
}

void RosterVC::showContextMenu(int clickedRow, QPoint globalPosition) {
    contextRow = clickedRow;
    context->popup(globalPosition);
}

void RosterVC::menuNeedsUpdate() {
    const Person* person = model->personAt(contextRow == -1 ? table->selectedRow() : contextRow);
    contextKey = person ? person->publicKey : std::string();
    contextCopy->setEnabled(person != nullptr);
}

void RosterVC::copyPublicKeyHit() {
    // Look the person up by key and not by row: the list may have changed while the menu was open.
    if (!contextKey.empty() && model->rowOf(contextKey) >= 0) QGuiApplication::clipboard()->setText(toQt(contextKey));
}
