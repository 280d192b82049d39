// The antenna's folder: its setting, and the thread that reads it, which exists only while it reads.
#pragma once

#include <atomic>
#include <boost/json/object.hpp>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rooms/antenna/antenna.h"

void folder_load();
void folder_start();  // begins to read the folder
void folder_stop();   // ends the reading
bool folder_reset();  // back to the folder of dtv_tv_antenna, or to none; the store has been reset

// Each returns the reply to the command, or an error.
boost::json::object folder_choose(std::string_view path);  // empty: none
boost::json::object folder_read_again();                   // all files, also those that have not changed
boost::json::object folder_shown();

// Adds the folder to the answer of "state", if there is one.
void folder_report(boost::json::object& answer);

bool folder_is_chosen();

// The folder beside the multiplexes in which channels' logos may be.
std::string folder_logos();

// Why the folder cannot be read; empty: it can.
std::string folder_problem();

// A line for each file that is not a multiplex.
std::vector<std::string> folder_refusals();

// Reads the folder again if its list of names or one of its files has changed.
void folder_look();

// Waits until the folder has been read. False: cancelled, or the set is off.
bool folder_settle(const std::atomic<bool>& cancelled);
