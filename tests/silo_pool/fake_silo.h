// A store in memory behind silo.h, whose calls are recorded and fail when a test wants it. Linked in place of the
// library.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using fake_content = std::map<std::string, std::string>;

// Empty, nothing recorded, nothing failing, embedded.
void fake_silo_reset();
fake_content fake_silo_content();
std::shared_ptr<const fake_content> fake_silo_snapshot();
void fake_silo_set_content(const fake_content &content);
void fake_silo_put(const std::string &key, const std::string &value);
void fake_silo_erase(const std::string &key);

// What was called since the last clear: "connect <uri>", "open <fd>", "select <db>", "destroy", "close <fd>",
// "begin write", "begin read", "get <key>", "set <key>=<value>", "delete <key>", "remove <prefix>", "lock <name> 3 1",
// "iterator", "seek <key>", "commit", "end", "announce <count>".
std::vector<std::string> fake_silo_calls();
// Only those that start with one of these words.
std::vector<std::string> fake_silo_calls_of(const std::vector<std::string> &words);
void fake_silo_clear_calls();

// The next `times` calls whose recorded text starts so fail, after `after` that still succeed.
void fake_silo_fail(const std::string &call, int times = 1, int after = 0);
void fake_silo_fail_no_more();
// What the next commits answer, in turn, and whether the changes are applied all the same.
void fake_silo_answer_commit(int answer, bool applied = false);
// What silo_transaction_conflict answers for a transaction in which a call failed.
void fake_silo_set_conflict(bool is_conflict);
// Every connection has failed, or no more.
void fake_silo_set_error(bool is_error);
// Announcing is of use, as with a server.
void fake_silo_set_server(bool is_server);
// Called at the beginning of each connect, with no lock of the fake held.
void fake_silo_on_connect(std::function<void()> called);
// Handles and descriptors that are open.
int fake_silo_open_handles();
int fake_silo_open_descriptors();
