// Who hears from a receiver: the drivers built on it. Entries form an
// intrusive list that a notification walks with a cursor, so an entry added
// or removed during a walk is handled safely.
#pragma once

#include <cstdint>

#include "support/critical_section_lock.h"

namespace kavo {

class ReceiverListener {
 public:
  virtual void OnDataChanged(uint32_t mask) = 0;
  virtual void OnStatusChanged() = 0;
  virtual void OnSentence(const char16_t* text) = 0;

 protected:
  ~ReceiverListener() = default;
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
  // Calls `notify(listener)` for every entry, under the list's lock.
  template <class Notify>
  void ForEach(Notify notify) {
    CriticalSectionLock::Guard guard(lock_);
    walking_ = true;
    cursor_ = head_;
    while (cursor_) {
      ListenerEntry* entry = cursor_;
      cursor_ = entry->next_;
      notify(*entry->owner_);
    }
    walking_ = false;
  }
  CriticalSectionLock& Lock() { return lock_; }

 private:
  friend class ListenerEntry;
  void Remove(ListenerEntry* entry);

  CriticalSectionLock lock_;
  ListenerEntry* head_ = nullptr;
  ListenerEntry* tail_ = nullptr;
  ListenerEntry* cursor_ = nullptr;
  bool walking_ = false;
};

}  // namespace kavo
