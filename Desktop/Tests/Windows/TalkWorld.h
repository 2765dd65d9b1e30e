#pragma once

#include "DesktopViews/ChatterView.h"
#include "DesktopViews/InputView.h"
#include "QtText/QtText.h"
#include "TestSupport/Session.h"
#include "TranscriptKit/Transcript.h"

#include <QCoreApplication>
#include <QTest>

#include <string>
#include <variant>
#include <vector>

/// A connected session with Ann (person 2) and Bob (person 3), and helpers that several tests of talks
/// use.
class TalkWorld {
public:
    using Strings = std::vector<std::string>;

    TalkWorld() {
        session.startConnected({listed(1), listed(2), listed(3)});
        says(ann, {std::nullopt, "Ann", "🐙", std::nullopt});
        says(bob, {std::nullopt, "Bob", "🦉", std::nullopt});
    }

    Kit& kit() { return *session.kit; }
    const State& state() { return kit().state(); }

    void says(const Keys& author, const PackPlaintext& record) { session.server().relay(author, record); }
    /// Ann sends a text to the user alone.
    void annSays(const std::string& text) { says(ann, {std::nullopt, "Ann", "🐙", text}); }
    void annIsCalled(const std::string& name) { says(ann, {std::nullopt, name, "🐙", std::nullopt}); }

    void loseLink() {
        session.server().link->end("reset");
        session.loop.run();
    }
    /// Lets the session connect again, with the same list.
    void findLink() {
        const auto links = session.transport.links.size();
        while (session.transport.links.size() == links && session.loop.step()) {
        }
        session.server().accept({listed(1), listed(2), listed(3)});
        session.server().takePacks();
    }

    /// What the client has sent to that reader since the last call, opened.
    std::vector<PackPlaintext> takeRecords(const Keys& reader) {
        std::vector<PackPlaintext> records;
        for (const EncryptedPack& pack : session.server().takePacks())
            if (pack.targetKey == reader.publicKey)
                if (auto record = recordIn(pack, reader)) records.push_back(*record);
        return records;
    }

    /// The rows as lines: "text: WORDS", "activity: WORDS", "daybreak".
    static Strings rows(const ChatterView& view) {
        struct Row {
            std::string operator()(const Transcript::Text& row) const { return "text: " + row.text.string(); }
            std::string operator()(const Transcript::Activity& row) const { return "activity: " + row.text.string(); }
            std::string operator()(const Transcript::Daybreak&) const { return "daybreak"; }
        };
        Strings rows;
        for (const Transcript::Item& item : view.transcript().items) rows.push_back(std::visit(Row(), item));
        return rows;
    }

    /// Types a line and presses Return; posted work still waits for the loop.
    static void type(InputView& input, const QString& text) {
        QTest::keyClicks(&input.textView(), text);
        QTest::keyClick(&input.textView(), Qt::Key_Return);
    }
    static std::string typed(InputView& input) { return fromQt(input.textView().text()); }

    /// Lets windows that have closed delete themselves.
    static void sweep() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    Session session;
    const Keys ann = keysOf(2);
    const Keys bob = keysOf(3);
    const std::string annKey = keyTextOf(2);
    const std::string bobKey = keyTextOf(3);
};
