// Shared by the store's tests: files, SQL, and child processes that are killed.
#pragma once

#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support.h"

// Sets the numbers of a database's layout: user_version and, from layout 2 on, application_id.
inline std::string layout_sql(int layout) {
  const int application = layout < 2 ? 0 : 0x64747600 + layout;
  return "PRAGMA user_version=" + std::to_string(layout) + "; PRAGMA application_id=" + std::to_string(application);
}

// Creates the table of layout 1, whose rows have no checksums.
inline std::string layout_1_sql() {
  return "DROP TABLE IF EXISTS settings;"
         "CREATE TABLE IF NOT EXISTS settings (key TEXT PRIMARY KEY, value) WITHOUT ROWID;" +
         layout_sql(1) + ";";
}

inline void write_sql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
}

inline std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::vector<std::string> files_of(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

// The files of the store's database: one after the set was switched off, since its journals are gone then.
inline std::vector<std::string> store_files_of(const std::string& folder) {
  std::vector<std::string> names = files_of(folder);
  std::erase_if(names, [](const std::string& name) { return !name.starts_with("tv.sqlite"); });
  return names;
}

// What is in the folder and in the folders in it: each path, with its content if it is a file.
inline std::map<std::string, std::string> contents_of(const std::string& folder) {
  std::map<std::string, std::string> contents;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    contents[entry.path()] = entry.is_regular_file() ? content_of(entry.path()) : "";
  return contents;
}

// The names of renamed damaged databases, without their journals.
inline std::vector<std::string> damaged_files(const std::string& folder) {
  std::vector<std::string> names = files_of(folder);
  std::erase_if(names, [](const std::string& name) {
    return name.rfind("tv.sqlite.damaged-", 0) != 0 || name.ends_with("-wal");
  });
  return names;
}

inline mode_t mode_of(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

// Runs act in a child process, in which it must not use GoogleTest. Returns the status from waitpid.
inline int run_apart(const std::function<bool()>& act) {
  const pid_t child = fork();
  if (child == 0) _exit(act() ? 0 : 1);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

// The same, but the child kills itself after act. Returns whether act has returned true.
inline bool run_and_kill(const std::function<bool()>& act) {
  const int status = run_apart([&] { return act() && kill(getpid(), SIGKILL) == 0; });
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

// Runs prepare and starts a set in a child process, which then exits. Returns the error, or "started".
inline std::string start_apart(
    const std::string& folder, const std::function<bool()>& prepare = [] { return true; }) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const int status = run_apart([&] {
    char* error = nullptr;
    if (!prepare()) return false;
    const std::string text = dtv_tv_start(folder.c_str(), &error) == 0 ? "started" : error;
    return write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
  });
  close(ends[1]);
  char text[2000];
  const ssize_t length = read(ends[0], text, sizeof text);
  close(ends[0]);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  return std::string(text, length < 0 ? 0u : static_cast<std::size_t>(length));
}

// The number of a test's repetitions: the environment variable's value, else `otherwise`.
inline int times(const char* variable, int otherwise) {
  const char* const wanted = getenv(variable);
  return wanted == nullptr ? otherwise : std::stoi(wanted);
}
