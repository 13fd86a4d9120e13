#include "Tavro/database.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "memoryTable.h"
#include "runQueue.h"

namespace Tavro {
namespace {

// The row type of no table.
constexpr unsigned noRowType = 65535;

thread_local TvPtr<TavroDB> databaseOfThread;

}  // namespace

// Tables go first: they take their interfaces out of the scheduler.
struct Database::Contents {
  SchedulerQueue scheduler;
  Client* binding = nullptr;
  std::unordered_map<std::string, std::unique_ptr<MemoryTable>> tables;

  MemoryTable* find(const std::string& name) const {
    const auto found = tables.find(name);
    return found == tables.end() ? nullptr : found->second.get();
  }
  MemoryTable* at(const std::string& path) const {
    MemoryTable* const table = find(path);
    return table != nullptr ? table : find(path.substr(0, path.rfind('.')));
  }
};

Database::Database() : contents_(std::make_unique<Contents>()) {}
Database::~Database() = default;

Table& Database::createTable(const std::string& name, const std::vector<ColumnDefinition>& columns) {
  if (findTable(name) != nullptr) throw std::invalid_argument("table " + name + " exists already");
  const std::size_t rowType = contents_->tables.size() + 1;
  if (rowType == noRowType) throw std::length_error("no row type is left for table " + name);
  auto table =
      std::make_unique<MemoryTable>(name, static_cast<unsigned short>(rowType), layOut(name, columns));
  return *contents_->tables.emplace(name, std::move(table)).first->second;
}

Table* Database::findTable(const std::string& name) { return contents_->find(name); }
Table* Database::tableAt(const std::string& path) { return contents_->at(path); }

void Database::bindInterface(TvTableInterface& interface, const std::string& path) {
  MemoryTable* const table = contents_->at(path);
  if (table == nullptr) throw std::invalid_argument("no table at path '" + path + "'");
  interface.state().bind(*table, *contents_->scheduler.queue_, contents_->binding);
}

SchedulerQueue& Database::scheduler() { return contents_->scheduler; }

void Database::clear() { contents_->tables.clear(); }

Client::Client(Database& database, FailureHandler failed) : database_(database), failed_(std::move(failed)) {}

Client::~Client() {
  for (InterfaceState* const interface : interfaces_) interface->leaveClient();
}

void Client::bind(const std::function<void()>& work) {
  struct Binding {
    Client*& place;
    Client* former;
    Binding(Client*& client, Client* now) : place(client), former(std::exchange(client, now)) {}
    Binding(const Binding&) = delete;
    Binding& operator=(const Binding&) = delete;
    ~Binding() { place = former; }
  };
  const Binding binding(database_.contents_->binding, this);
  work();
}

void Client::takeDown() noexcept {
  while (!interfaces_.empty()) interfaces_.back()->disconnect();
}

bool Client::isHeld() const {
  return std::any_of(interfaces_.begin(), interfaces_.end(), [](const InterfaceState* interface) {
    return !interface->isReader() && interface->isHeld();
  });
}

void Client::considerReaders() noexcept {
  for (InterfaceState* const interface : interfaces_) interface->consider();
}

void Client::fail(const std::exception_ptr& cause) {
  takeDown();
  failed_(cause);
}

TavroDB::TavroDB() : database_(std::make_unique<Database>()) {}
TavroDB::~TavroDB() = default;

unsigned int TavroDB::tableTypeId(const std::string& name, bool) {
  const Table* const table = database_->findTable(name);
  return table == nullptr ? noRowType : table->rowType();
}

BaseRow TavroDB::tvClass(const std::string& name) {
  const Table* const table = getTavroDb()->database().findTable(name);
  if (table == nullptr) return {};
  BaseRow metadata(tv_contentOffset);
  storeBytes(metadata.rwRowBuf() + tv_classIdOffset, std::uint32_t{table->rowType()});
  return metadata;
}

void TavroDB::bindInterface(TvTableInterface& interface, const std::string& path, bool) {
  database_->bindInterface(interface, path);
}

TvPtr<TavroDB> getTavroDb() {
  if (databaseOfThread != nullptr) return databaseOfThread;
  static const TvPtr<TavroDB> database = std::make_shared<TavroDB>();
  return database;
}

ThreadDatabase::ThreadDatabase(TvPtr<TavroDB> database)
    : former_(std::exchange(databaseOfThread, std::move(database))) {}

ThreadDatabase::~ThreadDatabase() { databaseOfThread = std::move(former_); }

}  // namespace Tavro
