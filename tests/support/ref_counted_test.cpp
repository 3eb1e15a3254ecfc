#include "support/ref_counted.h"

#include <gtest/gtest.h>

namespace kavo {
namespace {

class Readable : public virtual RefCounted {};
class Pausable : public virtual RefCounted {};

// One object behind two counted interfaces; it counts its destructions.
class Component final : public Readable, public Pausable {
 public:
  explicit Component(int* destroyed) : destroyed_(destroyed) {}

 private:
  ~Component() override { ++*destroyed_; }
  int* destroyed_;
};

TEST(Ref, EveryHolderOfEveryInterfaceCountsAndTheLastDeletes) {
  int destroyed = 0;
  auto* raw = new Component(&destroyed);
  {
    Ref<Component> a(raw);
    Ref<Component> b = a;
    Ref<Component> c(std::move(b));  // a move adds nothing
    EXPECT_FALSE(b);
    Ref<Component> d;
    d = c;
    d = d;  // self-assignment keeps the count
    Ref<Readable> source = a;
    Ref<Pausable> control(raw);
    EXPECT_EQ(raw->RefCount(), 5);
    c.reset();
    d = Ref<Component>();
    a.swap(d);
    EXPECT_EQ(raw->RefCount(), 3);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
  Ref<Component> a(new Component(&destroyed)), b(new Component(&destroyed));
  a = b;  // the object a held goes
  EXPECT_EQ(destroyed, 2);
}

}  // namespace
}  // namespace kavo
