#pragma once

#include "Base/Bytes.h"
#include "DesktopViews/QRScannerView.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "TweetNacl/Nacl.h"

#include <QWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>

class KeyScanVC;
class OutcomeBox;
class QLabel;
class QLineEdit;
class QMimeData;
class QPushButton;
enum class PictureTrouble;

/// Is told when a paper key was read.
class KeyScanVCDelegate {
public:
    /// Called once for a page, when `scannedKey` has the key. The page must not be destroyed in this call.
    virtual void keyScanned(KeyScanVC& page) = 0;

protected:
    ~KeyScanVCDelegate() = default;
};

/// The page on which a paper key is read: by the camera, from a picture (opened, dropped or pasted), or from its 64
/// characters, typed or pasted.
///
/// All ways are judged alike: hexadecimal text of exactly 32 bytes is a key. From typed text, blanks and line ends are
/// removed first. After a good key, the page takes nothing more.
///
/// The camera runs while the page is shown. Without a camera the page says so, and still offers the other ways. The
/// key is wiped with the page. Main thread only.
class KeyScanVC : public QWidget, public SignalTarget, public QRScannerViewDelegate {
    Q_OBJECT

public:
    /// @param loop    must outlive the page and the worker
    /// @param worker  reads pictures and looks through them. Somebody else must hold it too, so that the page need not
    ///                wait when it dies while a picture is being read from a disk that does not answer
    /// @param camera  a `Camera`
    KeyScanVC(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera,
              QWidget* parent = nullptr);
    ~KeyScanVC() override;

    void setDelegate(Weak<KeyScanVCDelegate> newDelegate) { delegate = newDelegate; }

    /// The secret key, 32 bytes; nothing before one was read. It is a copy, which the caller must wipe.
    std::optional<Bytes> scannedKey() const;

    QRScannerView& scannerView() const { return *_scannerView; }

    /// Reads a picture from a file, as after "Open Image...".
    void openImage(const QString& path);
    /// Takes what was dropped on the page or pasted: a picture, else the first file on this machine, else text.
    /// @return false if it is none of these
    bool take(const QMimeData& data);

    bool acceptPayload(QRScannerView& view, std::string_view payload) override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    using Picture = std::variant<SharedFrame, PictureTrouble>;
    struct Reading;

    void build(std::unique_ptr<QRScanner> scanner);
    void chooseImage();
    void paste();
    void readPicture(std::function<Picture()> load);
    void finish(const Reading& reading);
    void judgeTyped(bool isWhole);
    bool judge(std::string_view payload);
    void close();
    void showStatus();
    void showOutcome(std::optional<bool> isGood, const QString& words);

    MainLoop& loop;
    std::shared_ptr<Worker> worker;  // shared with the scanner
    Weak<KeyScanVCDelegate> delegate;
    std::optional<SecretKey> _scannedKey;
    std::uint64_t readings = 0;  // the number of the picture that is being read; earlier ones are dropped
    QRScannerView* _scannerView;
    QLabel* statusLabel;
    OutcomeBox* outcomeBox;
    QLabel* outcomeIcon;
    QLabel* outcomeLabel;
    QPushButton* openButton;
    QLineEdit* textField;
    QAction* showAction;
};
