// SPDX-License-Identifier: Apache-2.0
#include "client/check/AlertWatch.h"
#include "client/check/CheckRules.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>

namespace meridal {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto isFine = CheckState::Fine;
constexpr auto isWarning = CheckState::Warning;
constexpr auto isCritical = CheckState::Critical;
constexpr auto isUnknown = CheckState::Unknown;

/// Something as the daemon tells it, over what a healthy one tells.
struct RuleCase {
    const char* told;
    CheckState state;
    const char* says = ""; ///< somewhere in the lines of the topic
    const char* check = "{}";
};

CheckedTopic checkOne(const std::string& topic, const Value& usual, const RuleCase& rule)
{
    Value one = usual;
    one.update(json(rule.told));
    CheckSources sources;
    sources.status = topic == "daemon" ? one : Value{{"configuration", {{"check", json(rule.check)}}}};
    sources.disks = sources.sensors = Value::array({one});
    sources.battery = {{"batteries", Value::array({one})}};
    return checkAll(sources, {topic}).topics.at(0);
}

void expectRules(const std::string& topic, const char* usual, const std::vector<RuleCase>& rules)
{
    for (const RuleCase& rule : rules) {
        SCOPED_TRACE(std::string(rule.told) + rule.check);
        const CheckedTopic checked = checkOne(topic, json(usual), rule);
        std::string lines;
        for (const std::string& line : topicLines(checked)) {
            lines += line + '\n';
        }
        EXPECT_EQ(checked.state(), rule.state) << lines;
        EXPECT_THAT(lines, HasSubstr(rule.says));
    }
}

TEST(CheckTest, Disks)
{
    expectRules("disks",
        R"({"key":"WX1","bsd":"sda","kind":"ata","spins":true,"state":"awake","time":1,"healthy":true,"temperature":34,
            "attributes":[],"problems":[]})",
        {
            {"{}", isFine, "disks: OK - 1 disk\n"},
            {R"({"healthy":false})", isCritical, "CRITICAL sda (WX1): it predicts that it will fail"},
            {R"({"healthy":false,"attributes":[{"id":5,"name":"Reallocated sectors","status":"failing","predictsFailure":true,
                "meaning":"spare sectors run out"}]})",
                isCritical, "CRITICAL sda (WX1): Reallocated sectors is below its threshold; spare sectors run out\n"},
            {R"({"attributes":[{"id":9,"name":"Age","status":"failing","predictsFailure":false}]})", isWarning,
                "Age is below its threshold\n"},
            {R"({"attributes":[{"id":5,"name":"A","status":"failed before"}]})", isWarning, "A has been below"},
            {R"({"attributes":[{"id":197,"name":"Pending sectors","status":"fine","raw":8,"value":8}]})", isWarning,
                "Pending sectors: 8\n"},
            {R"({"attributes":[{"id":197,"name":"Pending sectors","status":"fine","raw":8,"value":8}]})", isFine, "",
                R"({"diskErrorsWarning":9})"},
            {R"({"wear":89.4})", isFine},
            {R"({"wear":90})", isWarning, "90 % of its rated life is used up"},
            {R"({"wear":100})", isCritical},
            {R"({"wear":90})", isCritical, "", R"({"diskWearCritical":85})"},
            {R"({"temperature":54})", isFine},
            {R"({"temperature":55})", isWarning, "55 °C, from 55 °C on"},
            {R"({"temperature":65})", isCritical},
            {R"({"temperature":65,"spins":false})", isFine},
            {R"({"temperature":80,"kind":"nvme"})", isFine},
            {R"({"temperature":48,"kind":"nvme"})", isWarning, "", R"({"diskTemperatureWarning":45})"},
            // A disk that sleeps is as it was, but as cool as it may be; of one that was never read nothing is known
            {R"({"state":"asleep","temperature":70})", isFine, "1 disk, 1 asleep"},
            {R"({"state":"asleep","wear":95})", isWarning},
            {R"({"state":"asleep","time":null,"healthy":null,"temperature":null})", isFine},
            {R"({"state":"unread","time":null,"healthy":null})", isFine, "1 disk, 1 not read"},
            {R"({"state":"hidden","time":null})", isFine},
            {R"({"state":"off","time":null})", isFine},
            {R"({"state":"denied","time":null})", isUnknown, "no right"},
            {R"({"state":"silent","time":null})", isUnknown},
            {R"({"state":"silent"})", isWarning},
            {R"({"state":"hanging"})", isWarning, "does not answer"},
            {R"({"healthy":false})", isFine, "1 disk, 1 ignored", R"({"ignore":["x","sda"]})"},
            {R"({"healthy":false})", isFine, "", R"({"ignore":["WX1"]})"},
        });
    expectRules("disks",
        R"({"key":"S5","bsd":"nvme0n1","kind":"nvme","state":"awake","time":1,"healthy":true,"log":{"criticalWarning":0}})",
        {
            {"{}", isFine},
            {R"({"healthy":false,"log":{"criticalWarning":2}})", isWarning, "too hot or too cold"},
            {R"({"healthy":false,"log":{"criticalWarning":9}})", isCritical, "it can only be read any more"},
            {R"({"log":{"availableSpare":9,"spareThreshold":10}})", isCritical, "9 % of its spare memory"},
            {R"({"log":{"availableSpare":10,"spareThreshold":10}})", isFine},
            {R"({"log":{"mediaErrors":1}})", isWarning, "1 error of its memory"},
        });
}

TEST(CheckTest, SensorsAndFans)
{
    const std::vector<RuleCase> shared = {
        {"{}", isFine},
        {R"({"value":null})", isFine},
        {R"({"alarm":"fault","value":null})", isWarning, "WARNING c/CPU (TBCC): it is broken or not connected"},
        {R"({"alarm":"fault"})", isWarning, "", R"({"sensors":[{"sensor":"CPU","warningAbove":9999}]})"},
        {R"({"alarm":"critical"})", isFine, "", R"({"ignore":["c/CPU"]})"},
    };
    constexpr const char* sensor =
        R"({"key":"TBCC","chip":"c","name":"CPU","kind":"temperature","unit":"°C","value":41.5,
        "low":5,"high":80,"critical":95,"fixed":true,"alarm":null})";
    expectRules("sensors", sensor, shared);
    expectRules("sensors", sensor,
        {
            {R"({"value":81,"alarm":"high"})", isWarning, "81.0 °C, above its limit of 80.0 °C\n"},
            {R"({"value":96,"alarm":"critical"})", isCritical, "96.0 °C, above its critical limit of 95.0 °C\n"},
            {R"({"alarm":"critical"})", isCritical, "41.5 °C, by its chip's own alarm (critical)\n"},
            {R"({"value":4,"alarm":"low"})", isWarning, "below its limit of 5.0 °C\n"},
            // The administrator's limits go before the chip's
            {R"({"value":96,"alarm":"critical"})", isWarning, "96.0 °C, from 90.0 °C on it is to warn of",
                R"({"sensors":[{"sensor":"TBCC","warningAbove":90,"criticalAbove":100}]})"},
            {"{}", isCritical, "from 41.5 °C on", R"({"sensors":[{"sensor":"c/CPU","criticalAbove":41.5}]})"},
            {"{}", isWarning, "downwards", R"({"sensors":[{"sensor":"CPU","warningBelow":42}]})"},
            {R"({"value":2000,"kind":"fan","alarm":"low"})", isFine, "no sensor"},
        });
    constexpr const char* fan =
        R"({"key":"TBCC","chip":"c","name":"CPU","kind":"fan","unit":"rpm","value":1200,"low":300,
        "fixed":true,"alarm":null})";
    expectRules("fans", fan, shared);
    expectRules("fans", fan,
        {
            {R"({"value":0,"alarm":"low"})", isCritical, "it stands still, and should turn at 300 rpm or more"},
            {R"({"value":250,"alarm":"low"})", isWarning, "250 rpm, below its limit of 300 rpm"},
            {R"({"value":0})", isFine}, // nothing was ever connected
            {R"({"value":450})", isCritical, "",
                R"({"sensors":[{"sensor":"CPU","warningBelow":600,"criticalBelow":500}]})"},
        });
}

TEST(CheckTest, BatteriesAndTheDaemon)
{
    expectRules("battery", R"({"key":"B 7","name":"Battery","type":0,"percentage":3,"state":2,"source":0,"health":87})",
        {
            {"{}", isFine, "battery: OK - 1 battery\n"},
            {R"({"condition":3})", isFine},
            {R"({"condition":4})", isWarning, "needs a check"},
            {R"({"condition":5})", isCritical, "failed for good"},
            {R"({"health":59.9})", isWarning},
            {R"({"health":59.9})", isFine, "", R"({"batteryHealthWarning":50})"},
            {R"({"type":1,"percentage":80})", isWarning, "the machine runs on it, 80 % left"},
            {R"({"type":1,"percentage":20})", isCritical},
            {R"({"type":1,"percentage":20,"state":1,"source":1})", isFine},
            {R"({"condition":5})", isFine, "", R"({"ignore":["Battery"]})"},
        });
    expectRules("daemon",
        R"({"release":"0.1.0","limitations":{"energy":"no counters"},"databases":{"statementsDropped":0}})",
        {
            {"{}", isFine, "daemon: OK - meridald 0.1.0, 1 limitation\n  cannot measure energy: no counters\n"},
            {R"({"databases":{"failing":2}})", isWarning, "2 of its files cannot be written"},
            {R"({"databases":{"statementsDropped":7}})", isWarning, "7 rows"},
            {R"({"databases":{"filesSetAside":1}})", isWarning, "1 file or table"},
            {R"({"configuration":{"warnings":[{"file":"/etc/m.conf","line":3,"text":"\u001bno"}]}})", isWarning,
                "1 line of its configuration not understood, /etc/m.conf:3: ?no"},
        });
    for (const char* topic : checkTopics) {
        EXPECT_EQ(checkAll({}, {topic}).state(), isUnknown) << topic;
    }
}

TEST(CheckTest, TheHeadlineIsAPluginsAndTheWorstComesFirst)
{
    CheckReport report{.topics = {{.topic = "disks", .summary = "2 disks"}, {.topic = "fans", .summary = "no fan"}}};
    EXPECT_EQ(checkHeadline(report, true), "MERIDAL OK - 2 disks; no fan");
    report.topics[0].figures = {{.label = "it's=x", .value = 34.5, .warning = 55},
        {.label = "b", .value = 97, .unit = "%", .warning = 60, .critical = 20, .isBelow = true}};
    EXPECT_EQ(checkHeadline(report, true), "MERIDAL OK - 2 disks; no fan | 'it_s_x'=34.5;55 'b'=97%;60:;20:");
    const auto add = [&](std::size_t topic, CheckState state, const char* text) {
        report.topics[topic].findings.push_back({text, "", state, text, "wrong|"});
    };
    add(0, isWarning, "w");
    EXPECT_EQ(checkHeadline(report, false), "MERIDAL WARNING - w: wrong/");
    add(1, isUnknown, "u");
    EXPECT_EQ(exitStatusOf(report.state()), 3) << "what is not known may be worse than a warning";
    add(0, isCritical, "c");
    add(1, isWarning, "w2");
    EXPECT_EQ(checkHeadline(report, false), "MERIDAL CRITICAL - c: wrong/; u: wrong/; w: wrong/; and 1 more");
    EXPECT_EQ(exitStatusOf(report.state()), 2);
    EXPECT_EQ(jsonOf(report)["topics"][0]["findings"][0]["name"], "c");
    EXPECT_THAT(topicLines(report.topics[0]),
        ElementsAre("disks: CRITICAL - 2 disks", "  CRITICAL c: wrong/", "  WARNING w: wrong/"));
    for (int more = 0; more < 50; ++more) {
        add(0, isWarning, "m");
    }
    EXPECT_THAT(topicLines(report.topics[0]), testing::SizeIs(11));
    EXPECT_EQ(topicLines(report.topics[0]).back(), "  and 43 more");
}

/// Looks, each a list of what is wrong with disks.
class AlertWatchTest : public testing::Test {
protected:
    struct Wrong {
        const char* thing;
        CheckState state;
        double count = 0;
    };
    /// What is told: "ok>critical" and the text, or nothing.
    std::string look(const std::vector<Wrong>& wrong, std::set<std::string> awaited = {})
    {
        CheckedTopic topic{.topic = "disks", .summary = "all well", .awaited = std::move(awaited)};
        topic.things = {"a", "b"};
        for (const Wrong& each : wrong) {
            topic.findings.push_back({each.thing, "x", each.state, each.thing, "bad", each.count});
        }
        return told({.topics = {topic}});
    }
    std::string told(const CheckReport& report)
    {
        std::string text;
        for (const Alert& alert : watch.look(report, 2)) {
            text += std::string(wordOf(alert.before)) + ">" + std::string(wordOf(alert.state)) + " " + alert.text;
        }
        return text;
    }
    AlertWatch watch;
};

TEST_F(AlertWatchTest, AChangeIsToldOnceAndAfterTwoLooks)
{
    EXPECT_EQ(look({}), "");
    EXPECT_EQ(look({{"a", isWarning}}), "");
    EXPECT_EQ(look({}), "") << "it was a moment";
    EXPECT_EQ(look({{"a", isWarning}}), "");
    EXPECT_EQ(look({{"a", isWarning}}), "ok>warning WARNING a: bad\n");
    for (int again = 0; again < 5; ++again) {
        EXPECT_EQ(look({{"a", isWarning}}), "");
    }
    EXPECT_EQ(look({{"a", isCritical}}), "");
    EXPECT_EQ(look({{"a", isCritical}, {"b", isWarning}}), "warning>critical CRITICAL a: bad\n");
    EXPECT_EQ(look({{"a", isCritical}, {"b", isWarning}}), "critical>critical CRITICAL a: bad\nWARNING b: bad\n")
        << "another disk is news, though the topic stays as bad";
    EXPECT_EQ(look({{"a", isCritical}}), "");
    EXPECT_EQ(look({{"a", isCritical}}), "") << "a little better is not";
    EXPECT_EQ(look({}), "");
    EXPECT_EQ(look({}), "critical>ok over: a: bad\n");
    EXPECT_EQ(look({}), "");

    look({{"a", isWarning, 5}});
    EXPECT_EQ(look({{"a", isWarning, 5}}), "ok>warning WARNING a: bad\n");
    look({{"a", isWarning, 6}});
    EXPECT_EQ(look({{"a", isWarning, 6}}), "warning>warning WARNING a: bad\n") << "errors grow";
    look({{"c", isWarning}, {"a", isWarning, 6}});
    look({{"c", isWarning}, {"a", isWarning, 6}});
    look({});
    EXPECT_EQ(look({}), "warning>ok over: a: bad\nnot there any more: c: bad\n");
}

TEST_F(AlertWatchTest, WhatNothingIsKnownOfStaysAsItWas)
{
    look({{"a", isCritical}});
    look({{"a", isCritical}});
    for (int asleep = 0; asleep < 3; ++asleep) {
        EXPECT_EQ(look({}, {"a"}), "");
    }
    EXPECT_EQ(told({{{.topic = "disks", .isSettling = true}}}) + told({{{.topic = "disks", .isSettling = true}}}), "");
    EXPECT_EQ(look({{"b", isWarning}}, {"a"}), "");
    EXPECT_EQ(look({{"b", isWarning}}, {"a"}), "critical>critical CRITICAL a: bad\nWARNING b: bad\n");

    const CheckReport away = reportWithoutDaemon("no daemon");
    EXPECT_EQ(told(away), "");
    EXPECT_EQ(told(away), "ok>unknown UNKNOWN meridald: no daemon\n");
    EXPECT_EQ(told(away), "");
    CheckReport back{.topics = {{.topic = "daemon", .summary = "meridald", .things = {"meridald"}}}};
    EXPECT_EQ(told(back), "");
    EXPECT_EQ(told(back), "unknown>ok over: meridald: no daemon\n");
    EXPECT_EQ(look({{"a", isCritical}, {"b", isWarning}}), "") << "disks had not changed meanwhile";
}

} // namespace
} // namespace meridal
