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
  for (Walk* walk = walks_; walk; walk = walk->link_)
    if (!walk->next_) walk->next_ = entry;
}

void ListenerList::Remove(ListenerEntry* entry) {
  CriticalSectionLock::Guard guard(lock_);
  if (entry->list_ != this) return;
  for (Walk* walk = walks_; walk; walk = walk->link_)
    if (walk->next_ == entry) walk->next_ = entry->next_;
  (entry->previous_ ? entry->previous_->next_ : head_) = entry->next_;
  (entry->next_ ? entry->next_->previous_ : tail_) = entry->previous_;
  entry->previous_ = entry->next_ = nullptr;
  entry->list_ = nullptr;
}

ListenerList::Walk::Walk(ListenerList& list) : list_(list) {
  CriticalSectionLock::Guard guard(list_.lock_);
  next_ = list_.head_;
  link_ = list_.walks_;
  list_.walks_ = this;
}

ListenerList::Walk::~Walk() {
  CriticalSectionLock::Guard guard(list_.lock_);
  for (Walk** at = &list_.walks_; *at; at = &(*at)->link_) {
    if (*at == this) {
      *at = link_;
      return;
    }
  }
}

Ref<ReceiverListener> ListenerList::Walk::Next() {
  CriticalSectionLock::Guard guard(list_.lock_);
  while (ListenerEntry* entry = next_) {
    next_ = entry->next_;
    // A listener whose last reference is already gone is being destroyed
    // and about to unlink itself: it hears nothing more.
    if (Ref<ReceiverListener> listener = Ref<ReceiverListener>::IfAlive(entry->owner_)) return listener;
  }
  return {};
}

}  // namespace kavo
