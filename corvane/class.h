#pragma once

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
