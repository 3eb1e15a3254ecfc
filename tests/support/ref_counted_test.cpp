#include "support/ref_counted.h"

#include <gtest/gtest.h>

namespace kavo {
namespace {

class Readable : public virtual RefCounted {
 public:
  virtual int Read() = 0;
};
class Pausable : public virtual RefCounted {
 public:
  virtual int Pause() = 0;
};

// One object behind two counted interfaces, as a playback is a source and a
// control at once; it reports its own destruction.
class Component final : public Readable, public Pausable {
 public:
  explicit Component(int* destroyed) : destroyed_(destroyed) {}
  int Read() override { return 1; }
  int Pause() override { return 2; }

 private:
  ~Component() override { ++*destroyed_; }
  int* destroyed_;
};

TEST(Ref, CountsEveryHolderAndDeletesAtZero) {
  int destroyed = 0;
  auto* raw = new Component(&destroyed);
  {
    Ref<Component> a(raw);
    EXPECT_EQ(raw->RefCount(), 1);
    Ref<Component> b = a;                // copy
    Ref<Component> c(std::move(b));      // move takes over, adds nothing
    EXPECT_FALSE(b);
    EXPECT_EQ(raw->RefCount(), 2);
    Ref<Component> d;
    d = c;                               // assignment
    d = d;                               // self-assignment keeps the count
    EXPECT_EQ(raw->RefCount(), 3);
    c.reset();
    d = Ref<Component>();
    EXPECT_EQ(raw->RefCount(), 1);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(Ref, InterfacesOfOneObjectShareOneCount) {
  int destroyed = 0;
  Ref<Component> object(new Component(&destroyed));
  Ref<Readable> source = object;  // converting copy
  Ref<Pausable> control(object.get());
  EXPECT_EQ(object->RefCount(), 3);
  EXPECT_EQ(source->Read() + control->Pause(), 3);
  object.reset();
  source.reset();
  EXPECT_EQ(destroyed, 0);
  control.reset();
  EXPECT_EQ(destroyed, 1);

  Ref<Component> a(new Component(&destroyed)), b(new Component(&destroyed));
  Component* first = a.get();
  a.swap(b);
  EXPECT_EQ(b.get(), first);
  a = b;  // the object a held goes
  EXPECT_EQ(destroyed, 2);
}

TEST(OwningHolder, DeletesUnlessHandedOut) {
  struct Plain {
    explicit Plain(int* d) : destroyed(d) {}
    ~Plain() { ++*destroyed; }
    int* destroyed;
  };
  int destroyed = 0;
  { OwningHolder<Plain> guard(new Plain(&destroyed)); }
  EXPECT_EQ(destroyed, 1);

  Plain* kept = nullptr;
  {
    OwningHolder<Plain> guard(new Plain(&destroyed));
    kept = guard.Detach();
    EXPECT_EQ(guard.get(), kept);
  }
  EXPECT_EQ(destroyed, 1);
  delete kept;
  EXPECT_EQ(destroyed, 2);
  { OwningHolder<Plain> empty(nullptr); }
}

}  // namespace
}  // namespace kavo
