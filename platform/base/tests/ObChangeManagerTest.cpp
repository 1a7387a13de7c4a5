#include "ObChangeManager.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace Vn;

namespace {
struct VN_EXPORT ObTestFamily {};

struct Subject : ObSubject<ObTestFamily> {
    std::string name;
    explicit Subject(std::string n) : name(std::move(n)) {}
    Subject(Subject const&) = default;
};

struct Said : ObHint {
    explicit Said(int v) : value(v) {}
    int value;
};

// Records every hook as "<hook> <subject name> [value]". A dying subject can only be told by
// its address, so names are learnt on attachment.
struct Recorder : ObObserver<ObTestFamily> {
    std::vector<std::string>* log;
    std::string me;
    std::function<void()> onUpdate;
    std::map<ObSubject<ObTestFamily> const*, std::string> names;
    Recorder(std::vector<std::string>* l, std::string m) : log(l), me(std::move(m)) {}
    using ObObserver::disableUpdates;

private:
    std::string nameOf(ObSubject<ObTestFamily>* s) const { return names.at(s); }
    void attachedTo(ObSubject<ObTestFamily>* s) override {
        names[s] = static_cast<Subject*>(s)->name;
        log->push_back(me + " attached " + nameOf(s));
    }
    void detachedFrom(ObSubject<ObTestFamily>* s) override {
        log->push_back(me + " detached " + nameOf(s));
    }
    void update(ObSubject<ObTestFamily>* s, ObHints const& hints) override {
        auto* said = hints.find<Said>();
        log->push_back(me + " update " + nameOf(s) + " " +
                       (said ? std::to_string(said->value) : "-"));
        if (onUpdate)
            onUpdate();
    }
};

ObHints say(int v) {
    return ObHints(RCShdPtr<ObHint>(new Said(v)));
}
} // namespace

TEST(ObSubject, AttachRefusesNullAndRepeatsAndNotifiesInOrder) {
    std::vector<std::string> log;
    Subject s("s");
    Recorder a(&log, "a"), b(&log, "b");
    EXPECT_FALSE(s.attachObserver(nullptr));
    EXPECT_TRUE(s.attachObserver(&b));
    EXPECT_TRUE(s.attachObserver(&a));
    EXPECT_FALSE(s.attachObserver(&a));
    EXPECT_EQ(s.getNbObservers(), 2);
    EXPECT_TRUE(s.hasObserver(&a));

    s.notify(say(1));
    EXPECT_FALSE(s.detachObserver(nullptr));
    EXPECT_TRUE(s.detachObserver(&b));
    EXPECT_FALSE(s.detachObserver(&b));
    s.notify(say(2));
    EXPECT_EQ(log, (std::vector<std::string>{"b attached s", "a attached s", "b update s 1",
                                             "a update s 1", "b detached s", "a update s 2"}));
}

TEST(ObSubject, ObserversChangedDuringANotificationWaitForTheNext) {
    std::vector<std::string> log;
    Subject s("s");
    Recorder a(&log, "a"), b(&log, "b"), late(&log, "late");
    s.attachObserver(&a);
    s.attachObserver(&b);
    a.onUpdate = [&] {
        s.detachObserver(&b);
        s.attachObserver(&late);
    };
    s.notify(say(1));
    a.onUpdate = nullptr;
    s.notify(say(2));
    EXPECT_EQ(log, (std::vector<std::string>{"a attached s", "b attached s", "a update s 1",
                                             "b detached s", "late attached s", "a update s 2",
                                             "late update s 2"}));
}

TEST(ObSubject, EitherSideMayDieFirst) {
    std::vector<std::string> log;
    auto s = std::make_unique<Subject>("s");
    Subject t("t");
    auto a = std::make_unique<Recorder>(&log, "a");
    Recorder b(&log, "b");
    s->attachObserver(a.get());
    s->attachObserver(&b);
    t.attachObserver(a.get());
    a.reset();
    EXPECT_EQ(s->getNbObservers(), 1);
    EXPECT_EQ(t.getNbObservers(), 0);
    s->notify(say(3));
    s.reset();
    // b was told that s went, and nobody holds s any more.
    EXPECT_EQ(log.back(), "b detached s");
    t.attachObserver(&b);
    t.notify(say(4));
    EXPECT_EQ(log.back(), "b update t 4");
}

TEST(ObSubject, ACopyStartsUnobservedAndASubjectMayDieInsideItsNotification) {
    std::vector<std::string> log;
    auto s = std::make_unique<Subject>("s");
    Recorder a(&log, "a"), b(&log, "b");
    s->attachObserver(&a);
    Subject copy(*s);
    EXPECT_EQ(copy.getNbObservers(), 0);
    copy.notify(say(1));
    EXPECT_EQ(log.size(), 1u);

    s->attachObserver(&b);
    a.onUpdate = [&] {
        s.reset();
    };
    auto* raw = s.get();
    raw->notify(say(2));
    EXPECT_EQ(log, (std::vector<std::string>{"a attached s", "b attached s", "a update s 2",
                                             "a detached s", "b detached s"}));
}

TEST(ObObserver, DisabledUpdatesAreForGood) {
    std::vector<std::string> log;
    Subject s("s");
    Recorder a(&log, "a");
    s.attachObserver(&a);
    a.disableUpdates();
    EXPECT_FALSE(a.areUpdatesEnabled());
    EXPECT_EQ(s.getNbObservers(), 0);
    EXPECT_FALSE(s.attachObserver(&a));
    s.notify(say(1));
    EXPECT_EQ(log, std::vector<std::string>{"a attached s"});
}
