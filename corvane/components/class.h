#pragma once

#include "corvane/base/lock.h"

#include <forward_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

class CS_Component;

// Version of a component class. Two ends can work together when their major numbers are equal.
struct CS_Version {
  constexpr CS_Version() = default;
  constexpr CS_Version(short a, short b, short c, short d) : major(a), minor(b), revision(c), build(d) {}
  friend constexpr bool operator==(const CS_Version&, const CS_Version&) = default;

  short major = 0;
  short minor = 0;
  short revision = 0;
  short build = 0;
};

// Makes and destroys the components of one class. Registered once with CS_ComponentServer::registerClass, which takes
// it over; it is called from any thread that creates components.
class CS_Class {
 public:
  explicit CS_Class(const CS_Version& version) : m_version(version) {}
  CS_Class(const CS_Class&) = delete;
  CS_Class& operator=(const CS_Class&) = delete;
  virtual ~CS_Class() = default;

  // Number of the request layout that this class speaks.
  virtual int currentSchema() const = 0;
  // The layout that both ends speak when the peer speaks the given one: the lower of the two.
  virtual int getSchema(int peerSchema) const;
  // A new component without references, or null when it cannot be made; never throws.
  virtual CS_Component* createInstance() = 0;
  // Destroys what createInstance() made; true, also for null. Never throws.
  virtual bool destroyInstance(CS_Component* component) = 0;

  const CS_Version& version() const { return m_version; }

 private:
  CS_Version m_version;
};

class CS_Channel;
namespace corvane {
class ValueReader;
class ValueWriter;
}  // namespace corvane

// The versions of the component classes that a process has registered, by class name. A plain value: copied freely, one
// object is not shared between threads without a lock.
class CS_ClassVersionMap {
 public:
  void set(const std::wstring& className, const CS_Version& version) { m_versions[className] = version; }
  std::optional<CS_Version> find(const std::wstring& className) const;
  bool isEmpty() const { return m_versions.empty(); }
  bool operator==(const CS_ClassVersionMap&) const = default;
  const std::map<std::wstring, CS_Version>& entries() const { return m_versions; }

  // Writes the map: the count, then for each class its name and four numbers.
  void write(corvane::ValueWriter& to) const;
  // Replaces the map by the one that is read. Throws CS_Exception when there is something else, more than kMaxClasses
  // classes, or a name of more than corvane::kMaxClassNameUnits.
  void read(corvane::ValueReader& from);
  // The same to and from a request's channel.
  void operator>>(CS_Channel& channel) const;
  void operator<<(CS_Channel& channel);

  static constexpr int kMaxClasses = 1024;

 private:
  std::map<std::wstring, CS_Version> m_versions;
};

namespace corvane {

// The component classes of this process, which stay until it ends. One per process; all operations are safe from any
// thread.
class ClassRegistry {
 public:
  static ClassRegistry& instance();

  // As CS_ComponentServer::registerClass, offerClass, findClass and findOfferedClass, which are for what uses the
  // framework.
  bool add(const wchar_t* name, CS_Class* componentClass);
  bool offer(const wchar_t* name);
  CS_Class* find(const wchar_t* name);
  CS_Class* findOffered(const wchar_t* name);
  void copyVersions(CS_ClassVersionMap& map);

 private:
  corvane::Lock m_lock;  // guards what follows
  std::map<std::wstring, CS_Class*> m_classes;
  std::set<std::wstring> m_offered;
  // Taking a class over takes the same memory however many there are.
  std::forward_list<std::unique_ptr<CS_Class>> m_owned;
};

}  // namespace corvane
