// Who hears from a receiver: the drivers built on it. Entries form an
// intrusive list. A notification walks it without holding the list's lock
// while a listener runs, with a cursor of its own, so listeners may be
// added or removed during a walk (from the walk itself or from another
// thread), and several walks may run at once.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "support/critical_section_lock.h"
#include "support/ref_counted.h"

namespace kavo {

// Counted: a walk holds the listener it calls, so a listener released
// during its own notification lives until that returns. Each notification
// carries what it is about, as it was when it was made: the status it
// announces, the location its mask describes (valid during the call).
class ReceiverListener : public virtual RefCounted {
 public:
  virtual void OnDataChanged(uint32_t mask, const GPSLocation& location) = 0;
  virtual void OnStatusChanged(int32_t status) = 0;
  virtual void OnSentence(const char16_t* text) = 0;
};

class ListenerList;

class ListenerEntry {
 public:
  explicit ListenerEntry(ReceiverListener* owner) : owner_(owner) {}
  ~ListenerEntry() { Unlink(); }
  ListenerEntry(const ListenerEntry&) = delete;
  ListenerEntry& operator=(const ListenerEntry&) = delete;

  void Unlink();
  ListenerList* List() const { return list_; }

 private:
  friend class ListenerList;
  ReceiverListener* owner_;
  ListenerEntry* previous_ = nullptr;
  ListenerEntry* next_ = nullptr;
  ListenerList* list_ = nullptr;
};

class ListenerList {
 public:
  ListenerList() = default;
  ~ListenerList();
  ListenerList(const ListenerList&) = delete;
  ListenerList& operator=(const ListenerList&) = delete;

  // Takes the entry out of any list it is in and appends it here. A walk in
  // progress that has passed the last entry goes on to the new one.
  void Append(ListenerEntry* entry);

  // Calls `notify(listener)` for every entry while `notify` returns true.
  // The list's lock is held only between the calls.
  template <class Notify>
  void ForEach(Notify notify) {
    Walk walk(*this);
    while (Ref<ReceiverListener> listener = walk.Next())
      if (!notify(*listener)) return;
  }

 private:
  friend class ListenerEntry;
  // One walk in progress, registered with the list for its lifetime, so
  // that adding and removing entries keeps its cursor right.
  class Walk {
   public:
    explicit Walk(ListenerList& list);
    ~Walk();
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    // The next listener still alive, with a reference; empty after the last.
    Ref<ReceiverListener> Next();

   private:
    friend class ListenerList;
    ListenerList& list_;
    ListenerEntry* next_;
    Walk* link_;
  };
  void Remove(ListenerEntry* entry);

  CriticalSectionLock lock_;
  ListenerEntry* head_ = nullptr;
  ListenerEntry* tail_ = nullptr;
  Walk* walks_ = nullptr;  // the walks in progress
};

}  // namespace kavo
