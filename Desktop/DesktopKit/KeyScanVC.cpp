#include "DesktopKit/KeyScanVC.h"

#include "DesktopKit/OutcomeBox.h"
#include "DesktopKit/PictureFile.h"
#include "DesktopViews/Icons.h"
#include "DesktopViews/Look.h"
#include "PlatformDesktop/GreyFrames.h"
#include "ScanKit/QRExtractor.h"

#include <QAccessible>
#include <QAction>
#include <QClipboard>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr int keyCharacters = 64;
constexpr int longestText = 1024;  // a paper key with blanks all over is shorter
constexpr int boxHeight = 30;
constexpr int iconSide = 20;

/// The typed or pasted text without blanks and line ends. Characters that are not ASCII become "?", which no key
/// contains. The caller must wipe the result.
std::string withoutBlanks(const QString& text) {
    std::string bare;
    // Reserve the memory, since a text that grows leaves copies of its pieces behind.
    bare.reserve(static_cast<std::size_t>(text.size()));
    for (const QChar character : text)
        if (!character.isSpace()) bare.push_back(character.unicode() < 128 ? character.toLatin1() : '?');
    return bare;
}

QString wordsFor(PictureTrouble trouble) {
    switch (trouble) {
        case PictureTrouble::notFound: return KeyScanVC::tr("The file can't be read.");
        case PictureTrouble::pdf:
            return KeyScanVC::tr("This is a PDF. Open a picture of the page instead, such as a screenshot.");
        case PictureTrouble::notReadable: return KeyScanVC::tr("This is not a picture that can be read here.");
        case PictureTrouble::tooLarge:
            return KeyScanVC::tr("The picture is too large. Cut out the code, or make it smaller.");
    }
    return {};
}

QLabel* plainLabel(const QString& name, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignCenter);
    return label;
}

}  // namespace

/// The result of reading a picture. The payload is wiped with it.
struct KeyScanVC::Reading {
    Reading(std::uint64_t number, Picture picture) : number(number), picture(std::move(picture)) {
        if (const auto* frame = std::get_if<SharedFrame>(&this->picture))
            payload = QRExtractor::payload(**frame, QRExtractor::Effort::thorough);
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading() {
        if (payload) Nacl::wipe(*payload);
    }

    std::uint64_t number;
    Picture picture;
    std::optional<std::string> payload;
};

KeyScanVC::KeyScanVC(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera,
                     QWidget* parent)
    : QWidget(parent), loop(loop), worker(std::move(worker)) {
    build(std::make_unique<QRScanner>(loop, this->worker, std::move(camera)));
    showStatus();
    showOutcome(std::nullopt, {});
}

KeyScanVC::~KeyScanVC() {
    // Overwrite text that was typed but never judged.
    textField->disconnect(this);
    textField->setText(QString(textField->text().size(), QLatin1Char(' ')));
    // The view still reports changes while it is destroyed, when this page is half destroyed already.
    _scannerView->onChange = nullptr;
}

void KeyScanVC::build(std::unique_ptr<QRScanner> scanner) {
    setAcceptDrops(true);
    auto* introduction = plainLabel(QStringLiteral("introduction"), this);
    introduction->setText(tr("Hold the paper key in front of the camera."));
    _scannerView = new QRScannerView(std::move(scanner), this);
    _scannerView->setObjectName(QStringLiteral("scannerView"));
    _scannerView->setDelegate(Weak<QRScannerViewDelegate>(this));
    _scannerView->onChange = [this] { showStatus(); };
    statusLabel = plainLabel(QStringLiteral("statusLabel"), _scannerView);
    // The view's grey is the same in a dark palette, so the text must be black in both.
    QPalette onGrey = statusLabel->palette();
    onGrey.setColor(QPalette::WindowText, Qt::black);
    statusLabel->setPalette(onGrey);
    auto* above = new QVBoxLayout(_scannerView);
    above->setContentsMargins(24, 24, 24, 24);
    above->addWidget(statusLabel);

    outcomeBox = new OutcomeBox(this);
    outcomeBox->setObjectName(QStringLiteral("outcomeBox"));
    outcomeBox->setFixedHeight(boxHeight);
    outcomeIcon = new QLabel(outcomeBox);
    outcomeIcon->setObjectName(QStringLiteral("outcomeIcon"));
    outcomeIcon->setAlignment(Qt::AlignCenter);
    auto* within = new QHBoxLayout(outcomeBox);
    within->setContentsMargins(0, 0, 0, 0);
    within->addWidget(outcomeIcon);
    outcomeLabel = plainLabel(QStringLiteral("outcomeLabel"), this);

    textField = new QLineEdit(this);
    textField->setObjectName(QStringLiteral("textField"));
    textField->setEchoMode(QLineEdit::Password);
    textField->setInputMethodHints(Qt::ImhSensitiveData | Qt::ImhNoPredictiveText | Qt::ImhNoAutoUppercase);
    textField->setPlaceholderText(tr("64 characters"));
    textField->setAccessibleName(tr("The 64 characters of the paper key"));
    textField->setMaxLength(longestText);
    // A file that is dropped on the field must be read as a picture, and not put its name into the field.
    textField->setAcceptDrops(false);
    textField->installEventFilter(this);
    connect(textField, &QLineEdit::textChanged, this, [this] { judgeTyped(false); });
    auto* showButton = new QToolButton(this);
    showButton->setObjectName(QStringLiteral("showButton"));
    showAction = new QAction(tr("Show"), this);
    showAction->setCheckable(true);
    showAction->setToolTip(tr("Show the characters"));
    showButton->setDefaultAction(showAction);
    connect(showAction, &QAction::toggled, this,
            [this](bool isShown) { textField->setEchoMode(isShown ? QLineEdit::Normal : QLineEdit::Password); });
    openButton = new QPushButton(tr("Open Image..."), this);
    openButton->setObjectName(QStringLiteral("openButton"));
    openButton->setAutoDefault(false);
    connect(openButton, &QPushButton::clicked, this, &KeyScanVC::chooseImage);
    auto* other = plainLabel(QStringLiteral("otherWays"), this);
    other->setText(tr("Or open, drop or paste a picture of it, or enter its characters:"));

    auto* shortcut = new QShortcut(QKeySequence::Paste, this);
    shortcut->setContext(Qt::WidgetWithChildrenShortcut);
    connect(shortcut, &QShortcut::activated, this, &KeyScanVC::paste);

    auto* row = new QHBoxLayout;
    row->addWidget(textField, 1);
    row->addWidget(showButton);
    row->addWidget(openButton);
    auto* column = new QVBoxLayout(this);
    column->setSpacing(8);
    column->addWidget(introduction);
    column->addWidget(_scannerView, 1);
    column->addWidget(outcomeBox);
    column->addWidget(outcomeLabel);
    column->addWidget(other);
    column->addLayout(row);
}

std::optional<Bytes> KeyScanVC::scannedKey() const {
    if (!_scannedKey) return std::nullopt;
    const ByteView view = _scannedKey->view();
    return Bytes(view.begin(), view.end());
}

void KeyScanVC::chooseImage() {
    auto* dialog = new QFileDialog(this, tr("Open Image"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters({tr("Pictures (%1)").arg(PictureFile::patterns()), tr("All files (*)")});
    connect(dialog, &QFileDialog::fileSelected, this, &KeyScanVC::openImage);
    dialog->open();
}

void KeyScanVC::openImage(const QString& path) {
    readPicture([path] { return PictureFile::load(path); });
}

void KeyScanVC::paste() {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    if (!data || !take(*data)) showOutcome(std::nullopt, tr("There is neither a picture nor a text to paste."));
}

bool KeyScanVC::take(const QMimeData& data) {
    if (_scannedKey) return false;
    // Take a picture in its file form if there is one, so that the worker unpacks it and not this thread.
    for (const char* format : {"image/png", "image/jpeg", "image/webp", "image/bmp"})
        if (data.hasFormat(QLatin1String(format))) {
            readPicture([bytes = data.data(QLatin1String(format))] { return PictureFile::decode(bytes); });
            return true;
        }
    if (data.hasImage()) {
        const auto image = qvariant_cast<QImage>(data.imageData());
        readPicture([image]() -> Picture {
            SharedFrame frame = GreyFrames::of(image);
            if (!frame) return PictureTrouble::notReadable;
            return frame;
        });
        return true;
    }
    if (data.hasUrls()) {
        for (const QUrl& url : data.urls())
            if (url.isLocalFile()) {
                openImage(url.toLocalFile());
                return true;
            }
        showOutcome(std::nullopt, tr("The picture is on another machine. Save it here, and open it then."));
        return true;
    }
    if (!data.hasText()) return false;
    textField->setText(data.text().left(longestText));
    judgeTyped(true);
    return true;
}

void KeyScanVC::readPicture(std::function<Picture()> load) {
    if (_scannedKey) return;
    showOutcome(std::nullopt, tr("Reading the picture..."));
    worker->run([this, &mainLoop = loop, life = lifeToken(), number = ++readings, load = std::move(load)] {
        if (life.expired()) return;
        auto reading = std::make_shared<Reading>(number, load());
        mainLoop.post([this, life, reading = std::move(reading)] {
            if (!life.expired()) finish(*reading);
        });
    });
}

void KeyScanVC::finish(const Reading& reading) {
    if (reading.number != readings || _scannedKey) return;
    if (const auto* trouble = std::get_if<PictureTrouble>(&reading.picture))
        return showOutcome(std::nullopt, wordsFor(*trouble));
    if (!reading.payload)
        return showOutcome(std::nullopt, tr("No QR code was found in the picture. A sharper or larger one may help."));
    if (judge(*reading.payload)) _scannerView->freeze(std::get<SharedFrame>(reading.picture));
}

void KeyScanVC::judgeTyped(bool isWhole) {
    if (_scannedKey) return;
    std::string text = withoutBlanks(textField->text());
    // Do not judge a text that is too short while the user is still typing.
    if (text.size() >= keyCharacters || (isWhole && !text.empty())) {
        if (judge(text)) _scannerView->freeze(nullptr);
    } else {
        showOutcome(std::nullopt, {});
    }
    Nacl::wipe(text);
}

bool KeyScanVC::acceptPayload(QRScannerView&, std::string_view payload) { return judge(payload); }

bool KeyScanVC::judge(std::string_view payload) {
    if (_scannedKey) return false;
    _scannedKey = Nacl::secretKeyFromHex(payload);
    const bool isGood = _scannedKey.has_value();
    if (isGood) close();
    showOutcome(isGood, isGood ? tr("Paper key read") : tr("Not a paper key"));
    if (isGood && delegate) delegate->keyScanned(*this);
    return isGood;
}

/// Takes no more keys: a second one could be mistaken for the one that is shown.
void KeyScanVC::close() {
    ++readings;
    // The toolkit keeps the text, also for undoing. Overwrite what can be overwritten.
    textField->setText(QString(textField->text().size(), QLatin1Char(' ')));
    textField->clear();
    showAction->setChecked(false);
    for (QWidget* control : {static_cast<QWidget*>(textField), static_cast<QWidget*>(openButton)})
        control->setEnabled(false);
    showAction->setEnabled(false);
    setAcceptDrops(false);
}

void KeyScanVC::showStatus() {
    const QRScanner& scanner = *_scannerView->scanner();
    const auto words = [&]() -> QString {
        switch (scanner.status()) {
            case QRScanner::Status::stopped:
            case QRScanner::Status::live:
            case QRScanner::Status::frozen: return {};
            case QRScanner::Status::starting: return tr("Starting the camera...");
            case QRScanner::Status::noCamera: return tr("No camera found");
            case QRScanner::Status::notOpened:
                return tr("The camera could not be opened. Another program may be using it.");
            case QRScanner::Status::silent: return tr("The camera sends no picture. Another program may be using it.");
        }
        return {};
    }();
    if (statusLabel->text() != words) statusLabel->setText(words);
    statusLabel->setVisible(!words.isEmpty());
}

void KeyScanVC::showOutcome(std::optional<bool> isGood, const QString& words) {
    outcomeBox->setOutcome(isGood);
    QPalette onColor = palette();
    onColor.setColor(QPalette::ButtonText, Qt::white);
    const QIcon icon =
        !isGood ? QIcon() : Icons::symbol(*isGood ? QStringLiteral("checkmark") : QStringLiteral("xmark"), onColor);
    outcomeIcon->setPixmap(icon.isNull() ? QPixmap() : icon.pixmap(QSize(iconSide, iconSide), devicePixelRatioF()));
    outcomeIcon->setAccessibleName(!isGood ? QString() : *isGood ? tr("Paper key read") : tr("Not a paper key"));
    if (outcomeLabel->text() == words) return;
    outcomeLabel->setText(words);
    if (words.isEmpty()) return;
    // Make a screen reader say it: the widget that has the focus has not changed.
    QAccessibleEvent said(outcomeLabel, QAccessible::Alert);
    QAccessible::updateAccessibility(&said);
}

void KeyScanVC::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!_scannedKey) _scannerView->start();
}

void KeyScanVC::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    ++readings;
    if (!_scannedKey) _scannerView->stop();
}

void KeyScanVC::dragEnterEvent(QDragEnterEvent* event) {
    const QMimeData& data = *event->mimeData();
    if (!_scannedKey && (data.hasImage() || data.hasUrls() || data.hasText())) event->acceptProposedAction();
}

void KeyScanVC::dropEvent(QDropEvent* event) {
    // Accept a copy only: after a move, the other program would delete what may be the only picture of a key.
    event->setDropAction(Qt::CopyAction);
    if (take(*event->mimeData())) event->accept();
}

bool KeyScanVC::eventFilter(QObject* watched, QEvent* event) {
    if (watched == textField && event->type() == QEvent::KeyPress) {
        auto* press = static_cast<QKeyEvent*>(event);
        if (press->matches(QKeySequence::Paste)) {
            paste();
            return true;
        }
        if (press->key() == Qt::Key_Return || press->key() == Qt::Key_Enter) judgeTyped(true);
    }
    return QWidget::eventFilter(watched, event);
}
