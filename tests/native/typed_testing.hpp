// Tests that run once for each type of a list. Unlike a TYPED_TEST of GoogleTest, an instance is
// only a function: classes and factories of instances would take half of the time to compile the
// tests.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace typed_testing {

template <class... T>
struct TypeList {};

using Body = void (*)();

class Instance : public testing::Test {
 public:
  explicit Instance(Body body) : m_body(body) {}

 private:
  void TestBody() override { m_body(); }

  Body m_body;
};

struct MakeInstance {
  Body body;
  Instance* operator()() const { return new Instance(body); }
};

// Registers the tests SUITE/TYPE.NAME. Always true, for the initialiser of a variable.
inline bool registerInstances(const char* suite, const char* name, const char* file, int line,
                              const std::vector<std::string>& typeNames,
                              std::span<const Body> bodies) {
  for (std::size_t k = 0; k < bodies.size(); ++k) {
    const std::string fullSuite = std::string(suite) + '/' + typeNames[k];
    testing::RegisterTest(fullSuite.c_str(), name, typeNames[k].c_str(), nullptr, file, line,
                          MakeInstance{bodies[k]});
  }
  return true;
}

template <class Names, class... T>
const std::vector<std::string>& namesOf(TypeList<T...> /*types*/) {
  static const std::vector<std::string> names = {Names::template nameOf<T>()...};
  return names;
}

template <template <class> class Case, class... T>
std::span<const Body> bodiesOf(TypeList<T...> /*types*/) {
  static constexpr Body bodies[] = {Case<T>::run...};
  return bodies;
}

template <class Suite, template <class> class Case>
bool registerCase(const char* suite, const char* name, const char* file, int line) {
  constexpr typename Suite::Types types;
  return registerInstances(suite, name, file, line, namesOf<typename Suite::Names>(types),
                           bodiesOf<Case>(types));
}

}  // namespace typed_testing

// A suite of tests for each type of TYPES, a TypeList. NAMES has the function template nameOf<T>().
#define TYPED_SUITE(suite, types, names) \
  struct suite {                         \
    using Types = types;                 \
    using Names = names;                 \
  }

// A test of the suite. Its body follows and uses the type as TypeParam.
#define TYPED_CASE(suite, name)                                                              \
  template <class TypeParam>                                                                 \
  struct suite##_##name {                                                                    \
    static void run();                                                                       \
  };                                                                                         \
  [[maybe_unused]] const bool suite##_##name##_isRegistered =                                \
      typed_testing::registerCase<suite, suite##_##name>(#suite, #name, __FILE__, __LINE__); \
  template <class TypeParam>                                                                 \
  void suite##_##name<TypeParam>::run()
