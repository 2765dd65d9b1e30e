#include "ScanKit/QRExtractor.h"

// Make the library's texts UTF-8. Its headers require the choice.
#define ZX_USE_UTF8

#include <ZXing/ReadBarcode.h>
#include <array>
#include <cstddef>
#include <exception>

namespace {

std::optional<std::string> read(const GreyFrame& frame, const ZXing::DecodeHints& hints) {
    // The library may throw; a picture that it can't read counts as one without a code.
    try {
        const ZXing::ImageView view(frame.pixels().data(), frame.width(), frame.height(), ZXing::ImageFormat::Lum,
                                    frame.width());
        const ZXing::Result result = ZXing::ReadBarcode(view, hints);
        if (!result.isValid() || result.bytes().empty()) return std::nullopt;
        return std::string(result.bytes().begin(), result.bytes().end());
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<std::string> QRExtractor::payload(const GreyFrame& frame, Effort effort) {
    ZXing::DecodeHints hints;
    hints.setFormats(ZXing::BarcodeFormat::QRCode).setTryHarder(true).setTryRotate(false).setMaxNumberOfSymbols(1);
    hints.setTryDownscale(effort == Effort::thorough);
    for (const auto binarizer : {ZXing::Binarizer::LocalAverage, ZXing::Binarizer::GlobalHistogram}) {
        hints.setBinarizer(binarizer);
        if (auto found = read(frame, hints)) return found;
    }
    return std::nullopt;
}
