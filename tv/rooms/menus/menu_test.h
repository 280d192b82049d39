// What tests see of the set's menu, and the keys that they press.
#pragma once

#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <string>
#include <vector>

#include "tests/unit/tv/support.h"

struct ShownMenu {
  static boost::json::object run(const std::vector<std::string>& words) {
    boost::json::array command;
    for (const std::string& each : words) command.emplace_back(each);
    return boost::json::parse(tv_control(boost::json::serialize(command))).as_object();
  }

  static boost::json::object menu() {
    const boost::json::object shown = run({"screen"});
    const boost::json::value* const found = shown.if_contains("menu");
    return found == nullptr ? boost::json::object{} : found->as_object();
  }

  // A member of a menu or of a row; empty: there is none.
  static std::string word(const boost::json::object& of, const char* name) {
    const boost::json::value* const found = of.if_contains(name);
    return found == nullptr ? "" : std::string(found->as_string());
  }

  static void press(const char* key) {
    const boost::json::object reply = run({"key", key});
    EXPECT_FALSE(reply.contains("error")) << key << " " << reply;
  }

  // The rows with their first marks, "Album:folder a.bmp:photo"; the chosen one in brackets.
  static std::string rows() {
    std::string text;
    const boost::json::object shown = menu();
    const boost::json::value* const chosen = shown.if_contains("selected");
    for (std::size_t i = 0; i < shown.at("rows").as_array().size(); ++i) {
      const boost::json::object& row = shown.at("rows").at(i).as_object();
      std::string name = word(row, "name");
      if (const boost::json::value* const marks = row.if_contains("marks"))
        name += ":" + std::string(marks->at(0).as_string());
      const bool is_chosen = chosen != nullptr && chosen->at("row").to_number<std::size_t>() == i;
      text += (text.empty() ? "" : " ") + (is_chosen ? "[" + name + "]" : name);
    }
    return text;
  }
};
