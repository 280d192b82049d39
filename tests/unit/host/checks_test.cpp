// What requests have wrong, compared with a description of a few made-up URIs.
#include "checks.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>

#include "base/text.h"
#include "reasons.h"

namespace {

constexpr std::string_view kDescription = R"({
  "uris": [
    {"uri": "/level", "group": "A", "type": "LEVEL", "get": true, "set": true, "notify": false},
    {"uri": "/switch", "group": "A", "type": "LEVEL", "get": false, "set": true, "notify": false,
     "without_effect": ["get"], "values": [{"value": 0, "help": "off"}, {"value": 1, "help": "on"}]},
    {"uri": "/code", "group": "A", "type": "TEXT", "get": true, "set": true, "notify": false, "limit": 3},
    {"uri": "/key", "group": "A", "type": "TEXT", "get": false, "set": true, "notify": false,
     "values": [{"value": "POWER"}, {"value": "MUTE"}]},
    {"uri": "/narrow", "group": "A", "type": "LEVEL", "get": true, "set": true, "notify": false,
     "minimum": "-32768", "maximum": "32767"},
    {"uri": "/store", "group": "A", "type": "STORE", "get": true, "set": true, "notify": false,
     "get_needs": [["key", "item"]], "set_needs": [["key", "item"], ["number"], ["text"]]},
    {"uri": "/go", "group": "A", "type": "ACTION", "get": false, "set": true, "notify": false},
    {"uri": "/event", "group": "WS_NFY", "type": "LEVEL", "get": false, "set": false, "notify": true},
    {"uri": "/none", "group": "B", "type": "LEVEL", "get": false, "set": false, "notify": false},
    {"uri": "/refused", "group": "A", "type": "ACTION", "get": false, "set": false, "notify": false, "help": "Only inside."},
    {"uri": "/window", "group": "A", "type": "WINDOW", "get": true, "set": true, "notify": false},
    {"uri": "/options", "group": "A", "type": "TYPE_OPTION_LIST", "get": true, "set": true, "notify": false}
  ],
  "types": {
    "LEVEL": {"query": null, "set": {"request": "MODIFY", "fields": [{"key": "VALUE", "kind": "int32"}]}},
    "TYPE_OPTION_LIST": {"query": null, "set": {"request": "MODIFY", "fields": [{"key": "VALUE", "kind": "int32"}]}},
    "TEXT": {"query": null, "set": {"request": "MODIFY", "fields": [{"key": "VALUE", "kind": "text", "limit": 1023}]}},
    "ACTION": {"query": null, "set": {"request": "ACTION", "fields": []}},
    "STORE": {
      "query": [{"key": "key", "kind": "text", "limit": 127}, {"key": "item", "kind": "uint32"}],
      "set": {"request": "SET", "fields": [
        {"key": "key", "kind": "text", "limit": 127}, {"key": "item", "kind": "uint32"},
        {"key": "number", "kind": "int64"}, {"key": "share", "kind": "int32", "minimum": "0", "maximum": "255"},
        {"key": "text", "kind": "text", "limit": 9}]}},
    "WINDOW": {
      "query": [{"key": "ID", "kind": "uint16"}, {"key": "ONLY", "kind": "int32", "uri": "/other"}],
      "set": {"request": "SET", "fields": [
        {"key": "COUNT", "kind": "uint32"}, {"key": "IDS", "kind": "array_of", "count": 2},
        {"key": "AT", "kind": "object", "fields": [{"key": "HOUR", "kind": "uint8"}]},
        {"key": "NAME", "kind": "text", "limit": 4}]}}
  },
  "kinds": [
    {"kind": "int32", "json": "number", "minimum": "-2147483648", "maximum": "2147483647"},
    {"kind": "uint8", "json": "number", "minimum": "0", "maximum": "255"},
    {"kind": "uint16", "json": "number", "minimum": "0", "maximum": "65535"},
    {"kind": "uint32", "json": "number", "minimum": "0", "maximum": "4294967295"},
    {"kind": "int64", "json": "number", "minimum": "-9223372036854775808", "maximum": "9223372036854775807"},
    {"kind": "text", "json": "string"}, {"kind": "array_of", "json": "array"}, {"kind": "object", "json": "object"}
  ]
})";

const CheckUri& row(std::string_view uri) {
  static const CheckUris uris = checks_read(boost::json::parse(kDescription));
  return uris.find(uri)->second;
}

// The findings, one per line; a refusal begins with "!".
std::string told(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings)
    text.append(text.empty() ? "" : "\n").append(finding.refused ? "!" : "").append(finding.text);
  return text;
}
std::string set(std::string_view uri, std::string_view parameter) { return told(check_set(row(uri), uri, parameter)); }
std::string get(std::string_view uri, std::string_view parameter) { return told(check_get(row(uri), uri, parameter)); }

TEST(Checks, RightRequestsHaveNoFindings) {
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":20})"), "");
  EXPECT_EQ(set("/level", R"({"VALUE":2e1, "REQUEST":"MODIFY"})"), "");
  EXPECT_EQ(set("/switch", R"({"REQUEST":"MODIFY","VALUE":1})"), "");
  EXPECT_EQ(set("/code", R"({"REQUEST":"MODIFY","VALUE":"deu"})"), "");
  EXPECT_EQ(set("/key", R"({"REQUEST":"MODIFY","VALUE":"mute"})"), "");
  EXPECT_EQ(set("/go", R"({"REQUEST":"ACTION"})"), "");
  EXPECT_EQ(set("/options", R"({"REQUEST":"SET","INDEX":2})"), "");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","COUNT":2,"IDS":[1,2],"AT":{"HOUR":5},"NAME":"four"})"), "");
  EXPECT_EQ(get("/level", ""), "");
  EXPECT_EQ(get("/level", "{}"), "");
  EXPECT_EQ(get("/window", R"({"REQUEST":"QUERY","ID":7})"), "");
}

TEST(Checks, TheRequestWord) {
  constexpr const char* right = R"(; this URI takes {"REQUEST":"MODIFY","VALUE":0})";
  EXPECT_EQ(set("/level", R"({"VALUE":1})"), std::string("!REQUEST is missing") + right);
  EXPECT_EQ(set("/level", R"({"REQUEST":"modify","VALUE":1})"), std::string("!REQUEST is \"modify\"") + right);
  EXPECT_EQ(set("/level", R"({"REQUEST":5,"VALUE":1})"), std::string("!REQUEST is 5") + right);
  EXPECT_EQ(set("/level", R"({"REQUEST":"ACTION"})"),
            std::string("REQUEST is \"ACTION\", and the item is no action: nothing is done") + right);
  EXPECT_EQ(get("/level", R"({"REQUEST":"QUERY"})"), "!a get of this URI takes no parameter, and so no \"QUERY\"");
  EXPECT_EQ(get("/window", R"({"ID":7})"),
            "REQUEST is missing; a get reads its parameter only with \"QUERY\", and ignores it otherwise");
}

TEST(Checks, WhatAUriCannotDo) {
  EXPECT_EQ(set("/event", R"({"REQUEST":"MODIFY","VALUE":1})"), "!this URI only notifies; subscribe to it");
  EXPECT_EQ(get("/event", ""), "!this URI only notifies; subscribe to it");
  EXPECT_EQ(get("/none", ""), "!nothing serves this URI; the list says which URIs can be read");
  EXPECT_EQ(set("/refused", R"({"REQUEST":"ACTION"})"), "!this URI cannot be set: Only inside.");
  EXPECT_EQ(get("/key", ""), "!this URI cannot be read, only set");
  EXPECT_EQ(get("/switch", ""), "a get of this URI succeeds without effect");
}

TEST(Checks, Values) {
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY"})"),
            R"(!VALUE is missing; this URI takes {"REQUEST":"MODIFY","VALUE":0})");
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":"abc"})"),
            "VALUE is a text, \"abc\", and must be a number; the set takes 0");
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":null})"),
            "VALUE is null, and must be a number; the set takes 0");
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":[1]})"),
            "VALUE is an array, [1], and must be a number; the set takes 0");
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":22.7})"),
            "VALUE is 22.7, which is not whole; the set takes 22");
  for (const std::string number : {"1e99999", "-1e99999", "2147483648", "-2147483649"})
    EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":)" + number + "}"),
              "VALUE is " + number + ", which is not within -2147483648 to 2147483647; the set takes another number");
  EXPECT_EQ(set("/switch", R"({"REQUEST":"MODIFY","VALUE":7})"),
            "VALUE is 7, which is not among its values: 0 (off), 1 (on)");
  EXPECT_EQ(set("/code", R"({"REQUEST":"MODIFY","VALUE":"germany"})"),
            "VALUE has 7 bytes; the set takes the first 3, \"ger\"");
  EXPECT_EQ(set("/code", R"({"REQUEST":"MODIFY","VALUE":7})"), "!VALUE is a number, 7, and must be a text");
  EXPECT_EQ(set("/key", R"({"REQUEST":"MODIFY","VALUE":"MUTED"})"),
            R"(VALUE is "MUTED", which is not among its values: "POWER", "MUTE"; did you mean "MUTE"?)");
  EXPECT_EQ(set("/options", R"({"REQUEST":"SET","INDEX":-1})"), "INDEX is negative: nothing is done");
}

TEST(Checks, Members) {
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":1,"value":2})"),
            "value is no member of this request, and is ignored; did you mean VALUE?");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","FOO":2})"),
            "FOO is no member of this request, and is ignored; its members are COUNT, IDS, AT, NAME");
  EXPECT_EQ(set("/go", R"({"REQUEST":"ACTION","X":1})"),
            "X is no member of this request, and is ignored; it has no members besides REQUEST");
  EXPECT_EQ(set("/level", R"({"REQUEST":"MODIFY","VALUE":1,"VALUE":2})"),
            "VALUE is there twice; the set reads the first");
  EXPECT_EQ(get("/window", R"({"REQUEST":"QUERY","ONLY":1})"),
            "ONLY is no member of this request, and is ignored; its members are ID");
  EXPECT_EQ(get("/window", R"({"REQUEST":"QUERY","ID":"12"})"),
            "ID is a text, \"12\", and must be a number; the set reads the digits that the text begins with");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","IDS":5})"), "!IDS is a number, and must be an array");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","IDS":[]})"), "!IDS is an empty array, and must have an element");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","IDS":[1,2,3]})"), "IDS has 3 elements; the set takes the first 2");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","AT":{"HOUR":256}})"),
            "HOUR is 256, which is not within 0 to 255; the set takes another number");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","AT":"noon"})"),
            "AT is a text, and must be an object; the set ignores it");
  EXPECT_EQ(set("/window", R"({"REQUEST":"SET","NAME":5})"),
            "NAME is a number, 5, and must be a text; the set ignores it");
}

// The range of a URI's value, or of a member, is that of what the platform receives.
TEST(Checks, NarrowRanges) {
  EXPECT_EQ(set("/narrow", R"({"REQUEST":"MODIFY","VALUE":-32768})"), "");
  EXPECT_EQ(set("/narrow", R"({"REQUEST":"MODIFY","VALUE":65546})"),
            "VALUE is 65546, which is not within -32768 to 32767; the set takes another number");
  EXPECT_EQ(set("/store", R"({"REQUEST":"SET","key":"a","number":1,"text":"b","share":256})"),
            "share is 256, which is not within 0 to 255; the set takes another number");
}

// Next to the ends of 64 bits, doubles are 1024 apart and more.
TEST(Checks, NumbersOf64BitsAreComparedExactly) {
  const auto number = [](const std::string& value) {
    return set("/store", R"({"REQUEST":"SET","key":"a","text":"b","number":)" + value + "}");
  };
  for (const std::string value : {"9223372036854775807", "-9223372036854775808"}) EXPECT_EQ(number(value), "");
  for (const std::string value : {"9223372036854775808", "-9223372036854775809"})
    EXPECT_EQ(number(value), "number is " + value +
                                 ", which is not within -9223372036854775808 to 9223372036854775807; the set takes "
                                 "another number");
}

TEST(Checks, NeededMembers) {
  EXPECT_EQ(get("/store", R"({"REQUEST":"QUERY","item":7})"), "");
  EXPECT_EQ(get("/store", R"({"REQUEST":"QUERY"})"),
            R"(key or item is missing; this URI takes {"REQUEST":"QUERY","key":"text"})");
  EXPECT_EQ(get("/store", ""), R"(key or item is missing; this URI takes {"REQUEST":"QUERY","key":"text"})");
  constexpr const char* right = R"(; this URI takes {"REQUEST":"SET","key":"text","number":0,"text":"text"})";
  EXPECT_EQ(set("/store", R"({"REQUEST":"SET","key":"a"})"), std::string("number is missing; the set takes 0") + right +
                                                                 "\ntext is missing; the set takes an empty text" +
                                                                 right);
  EXPECT_EQ(set("/store", R"({"REQUEST":"SET","text":"a","number":1})"), std::string("key or item is missing") + right);
  // A text is no number when no digits are in it.
  EXPECT_EQ(set("/store", R"({"REQUEST":"SET","key":"a","number":"x","text":""})"),
            "number is a text, \"x\", and must be a number; the set takes 0");
}

TEST(Checks, HugeRequestsGetFewAndShortFindings) {
  std::string parameter = R"({"REQUEST":"MODIFY","VALUE":")" + std::string(1000, 'x') + "\"";
  for (int i = 0; i < 1000; ++i) parameter += ",\"member" + std::to_string(i) + "\":" + std::to_string(i);
  const std::vector<Finding> findings = check_set(row("/level"), "/level", parameter + "}");
  EXPECT_EQ(findings.size(), kMostFindings);
  for (const Finding& finding : findings) EXPECT_LT(finding.text.size(), 200u) << finding.text;
  // A character is not cut in two.
  std::string text = "x";
  for (int i = 0; i < 100; ++i) text += "\u00e4";
  EXPECT_TRUE(is_utf8(set("/level", R"({"REQUEST":"MODIFY","VALUE":")" + text + "\"}")));
  EXPECT_EQ(set("/code", "{\"REQUEST\":\"MODIFY\",\"VALUE\":\"\u00e4\u00e4\"}"),
            "VALUE has 4 bytes; the set takes the first 3, \"\u00e4\"");
}

TEST(Reasons, ThePlatformsSentenceComesFirst) {
  const dtv_tap_failure_t failure{.function = "a_set_level", .result = -1, .by_fault = 0};
  const Finding finding{"a finding", true};
  EXPECT_EQ(reason_of({.ret = -1,
                       .failure = &failure,
                       .log = "x\ndtv_tv: a_set_level: 101 is too much\ny\n",
                       .findings = {&finding, 1}}),
            "101 is too much (a_set_level returned -1)");
  EXPECT_EQ(reason_of({.ret = -1, .failure = &failure, .log = "dtv_tv: the set is off; nothing was changed\n"}),
            "the set is off; nothing was changed (a_set_level returned -1)");
  // A line of another function is about another call.
  EXPECT_EQ(reason_of({.ret = -1, .failure = &failure, .log = "dtv_tv: a_get_level: no such level\n"}),
            "the platform refused: a_set_level returned -1");
  EXPECT_EQ(reason_of({.ret = -1, .failure = &failure}), "the platform refused: a_set_level returned -1");
}

TEST(Reasons, APlatformsCodeIsNotExplainedWithThePluginsMeaning) {
  const dtv_tap_failure_t failure{.function = "a_set_level", .result = -5, .by_fault = 0};
  EXPECT_EQ(reason_of({.ret = -5, .failure = &failure}),
            "the platform refused: a_set_level returned -5, a code of the platform's own");
  const dtv_tap_failure_t fault{.function = "a_set_level", .result = -5, .by_fault = 1};
  EXPECT_EQ(reason_of({.ret = -5, .failure = &fault}),
            "a fault is set on the platform's a_set_level, which returned -5");
  EXPECT_EQ(reason_of({.ret = -77}), "the set answered -77, a code of the platform's own");
}

TEST(Reasons, WithoutAFailedCallTheRequestIsExplained) {
  const Finding findings[] = {{"bent", false}, {"refused", true}};
  EXPECT_EQ(reason_of({.ret = -1, .findings = findings}), "refused");
  EXPECT_EQ(reason_of({.ret = -2, .findings = std::span(findings).first(1)}), "an argument is wrong or missing; bent");
  EXPECT_EQ(reason_of({.ret = -2, .example = "{}"}), "an argument is wrong or missing; this URI takes {}");
  EXPECT_EQ(reason_of({.ret = -1, .log = "[TVC_API][decode][12] --> IDS type is NOT array!\r\n"}),
            "the plugin reports: IDS type is NOT array!");
  EXPECT_EQ(reason_of({.ret = 13}),
            "the set answered 13; as a code of the plugin it means: the USB storage is still being scanned");
  EXPECT_EQ(reason_of({.ret = -5, .tapped = false}),
            "the set answered -5; as a code of the plugin it means: unknown URI");
  EXPECT_EQ(reason_of({.ret = -5}), "unknown URI");
}

}  // namespace
