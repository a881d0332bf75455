// The bridge's own rules, without a broker: topic names, what a set
// accepts, when a state is sent again, the one waiting set per variable,
// and the command line's MQTT options.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "host/mqtt/mqtt_payloads.h"
#include "host/mqtt/mqtt_topics.h"
#include "host/mqtt/set_queue.h"

namespace {

using namespace logohost;
using Json = nlohmann::json;

TEST(MqttTopics, NamesAreFitForATopicLevel)
{
    const struct {
        const char *text, *name;
    } rows[] = {{"VW10@2", "VW10_2"}, {"V10.3", "V10_3"}, {"a+b#c/d", "a_b_c_d"}, {"plant-1_x", "plant-1_x"},
                {"", "_"}, {"Küche", "K__che"}};
    for (const auto& row : rows)
        EXPECT_EQ(topicName(row.text), row.name) << row.text;
    const Topics topics("n");
    EXPECT_EQ(topics.varOfSet("logohost/n/VW10_2/set"), "VW10_2");
    for (const char* other : {"logohost/m/VW10/set", "logohost/n/a/b/set", "logohost/n//set", "logohost/n/VW10/state"})
        EXPECT_EQ(topics.varOfSet(other), "") << other;
}

TEST(MqttTopics, WhatASetAccepts)
{
    const struct {
        Kind kind;
        const char* payload;
        bool accepted;
        double value;
    } rows[] = {{Kind::Q, "ON", true, 1},     {Kind::Q, "off", true, 0},    {Kind::M, " True\n", true, 1},
                {Kind::V, "0", true, 0},      {Kind::Q, "2", false, 0},     {Kind::Q, "", false, 0},
                {Kind::Q, "yes", false, 0},   {Kind::VW, "42.5", true, 42.5}, {Kind::VW, "-1e2", true, -100},
                {Kind::AQ, " 7 ", true, 7},   {Kind::VW, "0x10", false, 0}, {Kind::VW, "nan", false, 0},
                {Kind::VW, "inf", false, 0},  {Kind::VW, "1e999", false, 0}, {Kind::VD, "{\"value\": 1}", false, 0},
                {Kind::VW, "4 2", false, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.payload);
        double value = -1;
        std::string why;
        EXPECT_EQ(parseSetValue(row.kind, row.payload, &value, &why), row.accepted);
        if (row.accepted)
            EXPECT_EQ(value, row.value);
        else
            EXPECT_FALSE(why.empty());
    }
}

// A state is sent again when what it says changes, never for a read
// that changes nothing, and a value that goes bad says so with its value.
TEST(MqttPayloads, StatesCarryTheirTruth)
{
    PanelItem item;
    item.var.kind = Kind::VW;
    item.scale = 0.1;
    item.decimals = 1;
    ElementStatus good;
    good.hasValue = true;
    good.value = 911;
    good.quality = Quality::Ok;
    ElementStatus reread = good, stale = good;
    reread.readAtMs = 2000;
    stale.quality = Quality::Stale;
    stale.why = "not read again within 4 s";
    EXPECT_EQ(stateKey(good), stateKey(reread));
    EXPECT_NE(stateKey(good), stateKey(stale));
    EXPECT_NE(stateKey(good), stateKey(ElementStatus()));

    const Json shown = Json::parse(statePayload(item, stale));
    EXPECT_EQ(shown["value"], 91.1);
    EXPECT_EQ(shown["text"], "91.1");
    EXPECT_EQ(shown["quality"], "stale");
    EXPECT_EQ(shown["why"], stale.why);
    const Json never = Json::parse(statePayload(item, ElementStatus()));
    EXPECT_TRUE(never["value"].is_null());
    EXPECT_TRUE(never["text"].is_null());
    EXPECT_EQ(never["quality"], "never-read");
    const Json result = Json::parse(resultPayload("\xff\xfe", {Outcome::BadRequest, "no"}, 0));
    EXPECT_EQ(result["ok"], false);  // bytes that are no text do not stop the answer
}

TEST(MqttSetQueue, AFloodHoldsOneSetPerVariable)
{
    SetQueue queue;
    constexpr int kSets = 10000;
    int replaced = 0;
    for (int s = 0; s < kSets; ++s) {
        PendingSet older;
        if (queue.offer(PendingSet{static_cast<size_t>(s % 3), std::to_string(s)}, &older)) {
            ++replaced;
            EXPECT_EQ(older.var, static_cast<size_t>(s % 3));
            EXPECT_EQ(older.payload, std::to_string(s - 3));
        }
    }
    EXPECT_EQ(queue.waiting(), 3u);
    EXPECT_EQ(replaced, kSets - 3);
    PendingSet set;
    for (int var = 0; var < 3; ++var) {
        ASSERT_TRUE(queue.take(&set));
        EXPECT_EQ(set.var, static_cast<size_t>(var));  // in the order they first came
        int newest = kSets - 1;
        while (newest % 3 != var)
            --newest;
        EXPECT_EQ(set.payload, std::to_string(newest));
    }
    queue.stop();
    EXPECT_FALSE(queue.take(&set));
}

}  // namespace
