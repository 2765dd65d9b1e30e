#include "SoundFile.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

namespace {

/// The strength of a pitch in a part of a sound (Goertzel's algorithm).
double strength(const std::vector<int>& samples, double pitch, double from, double to) {
    const double step = 2 * std::numbers::pi * pitch / SoundFile::rate;
    double real = 0;
    double imaginary = 0;
    for (auto i = static_cast<std::size_t>(from * SoundFile::rate);
         i < std::min(samples.size(), static_cast<std::size_t>(to * SoundFile::rate)); i++) {
        real += samples[i] * std::cos(step * static_cast<double>(i));
        imaginary += samples[i] * std::sin(step * static_cast<double>(i));
    }
    return std::hypot(real, imaginary);
}

/// The strongest pitch between 200 and 4000 Hz, exact to a twelfth of a semitone.
double mainPitch(const std::vector<int>& samples, double from, double to) {
    double best = 0;
    double most = 0;
    for (double pitch = 200; pitch < 4000; pitch *= std::exp2(1.0 / 144)) {
        const double found = strength(samples, pitch, from, to);
        if (found > most) {
            most = found;
            best = pitch;
        }
    }
    return best;
}

class SoundFileTest : public ::testing::TestWithParam<const char*> {
protected:
    const SoundFile sound{QLatin1String(GetParam())};
};

TEST_P(SoundFileTest, IsPlainMonoSamplesOfSixteenBits) {
    ASSERT_EQ(sound.header.size(), SoundFile::headerSize);
    EXPECT_EQ(sound.header.mid(8, 8), QByteArray("WAVEfmt "));
    EXPECT_EQ(qFromLittleEndian<quint16>(sound.header.constData() + 20), 1);
    EXPECT_EQ(qFromLittleEndian<quint16>(sound.header.constData() + 22), 1);
    EXPECT_EQ(qFromLittleEndian<quint32>(sound.header.constData() + 24), 48000U);
    EXPECT_EQ(qFromLittleEndian<quint16>(sound.header.constData() + 34), 16);
    EXPECT_EQ(qFromLittleEndian<quint32>(sound.header.constData() + 40), 2 * sound.samples.size());
}

TEST_P(SoundFileTest, IsShort) {
    const double seconds = static_cast<double>(sound.samples.size()) / SoundFile::rate;
    EXPECT_GE(seconds, 0.15);
    EXPECT_LE(seconds, 0.6);
}

TEST_P(SoundFileTest, IsQuietButThere) {
    int peak = 0;
    for (const int sample : sound.samples) peak = std::max(peak, std::abs(sample));
    const double decibels = 20 * std::log10(peak / SoundFile::fullScale);
    EXPECT_LE(decibels, -14);
    EXPECT_GE(decibels, -26);
}

TEST_P(SoundFileTest, BeginsAndEndsInSilenceAndDoesNotClick) {
    ASSERT_GT(sound.samples.size(), 1000U);
    for (std::size_t i = 0; i < 100; i++) {
        EXPECT_EQ(sound.samples[i], 0);
        EXPECT_EQ(sound.samples[sound.samples.size() - 1 - i], 0);
    }
    // A jump that is faster than the tones themselves is heard as a click, so the curvature must stay near theirs.
    double bend = 0;
    double sum = 0;
    for (std::size_t i = 1; i + 1 < sound.samples.size(); i++) {
        bend = std::max(
            bend, std::abs(static_cast<double>(sound.samples[i - 1]) - 2.0 * sound.samples[i] + sound.samples[i + 1]));
        sum += sound.samples[i];
    }
    EXPECT_LT(bend / SoundFile::fullScale, 0.01);
    EXPECT_LT(std::abs(sum / static_cast<double>(sound.samples.size())) / SoundFile::fullScale, 0.001);
}

INSTANTIATE_TEST_SUITE_P(Each, SoundFileTest, ::testing::Values("chat", "join", "mention"),
                         [](const auto& each) { return std::string(each.param); });

TEST(SoundFilesTest, AreToldApartByTheirNotes) {
    const auto isNear = [](double pitch, double expected) { return std::abs(pitch / expected - 1) < 0.02; };
    const SoundFile chat(QStringLiteral("chat"));
    EXPECT_TRUE(isNear(mainPitch(chat.samples, 0, 0.26), 659.26));
    const SoundFile join(QStringLiteral("join"));
    EXPECT_TRUE(isNear(mainPitch(join.samples, 0, 0.12), 523.25));
    EXPECT_TRUE(isNear(mainPitch(join.samples, 0.2, 0.48), 783.99));
    const SoundFile mention(QStringLiteral("mention"));
    EXPECT_TRUE(isNear(mainPitch(mention.samples, 0, 0.13), 880.00));
    EXPECT_TRUE(isNear(mainPitch(mention.samples, 0.2, 0.56), 1174.66));
}

}  // namespace
