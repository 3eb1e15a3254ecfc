#include "nmea/receiver_listener.h"

namespace kavo {

void ListenerEntry::Unlink() {
  if (ListenerList* list = list_) list->Remove(this);
}

ListenerList::~ListenerList() {
  while (head_) Remove(head_);
}

void ListenerList::Append(ListenerEntry* entry) {
  if (entry->list_ && entry->list_ != this) entry->Unlink();
  CriticalSectionLock::Guard guard(lock_);
  if (entry->list_ == this) Remove(entry);
  entry->list_ = this;
  entry->previous_ = tail_;
  entry->next_ = nullptr;
  (tail_ ? tail_->next_ : head_) = entry;
  tail_ = entry;
  if (walking_ && !cursor_) cursor_ = entry;
}

void ListenerList::Remove(ListenerEntry* entry) {
  CriticalSectionLock::Guard guard(lock_);
  if (entry->list_ != this) return;
  if (cursor_ == entry) cursor_ = entry->next_;
  (entry->previous_ ? entry->previous_->next_ : head_) = entry->next_;
  (entry->next_ ? entry->next_->previous_ : tail_) = entry->previous_;
  entry->previous_ = entry->next_ = nullptr;
  entry->list_ = nullptr;
}

}  // namespace kavo
