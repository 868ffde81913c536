// Reference counting, handles and the optional counter lock.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "vell/objects.h"

namespace {

using namespace VELL_2_13;

class ITestObject : public IVellObject {
public:
  virtual int value() const = 0;
};

// Records its destruction into a shared journal.
class TestObject : public RefCountImpl<ITestObject> {
public:
  explicit TestObject(std::vector<std::string> *journal, ILock *lock = nullptr)
      : RefCountImpl<ITestObject>(lock), m_journal(journal) {}
  ~TestObject() override {
    if (m_journal)
      m_journal->push_back("destroyed");
  }
  int value() const override { return 42; }

private:
  std::vector<std::string> *m_journal;
};

// A lock that writes every call into the journal.
class JournalLock : public RefCountImpl<ILock> {
public:
  explicit JournalLock(std::vector<std::string> *journal) : m_journal(journal) {}
  void lock() override { m_journal->push_back("lock"); }
  void unlock() override { m_journal->push_back("unlock"); }

private:
  std::vector<std::string> *m_journal;
};

ObjectPtr<ITestObject> makeObject(std::vector<std::string> *journal) {
  return ObjectPtr<ITestObject>(new TestObject(journal));
}

int countOf(const ObjectPtr<ITestObject> &p) { return static_cast<TestObject *>(p.get())->refCount(); }

TEST(RefCount, FactoryObjectStartsWithOneReference) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  EXPECT_EQ(countOf(p), 1);
  EXPECT_EQ(p->value(), 42);
}

TEST(RefCount, LibraryFactoryYieldsCountOne) {
  ObjectPtr<IEventGeneratorImpl> impl = IEventGeneratorImpl::create(nullptr);
  ASSERT_FALSE(impl.isNull());
  EXPECT_EQ(static_cast<EventGeneratorImpl *>(impl.get())->refCount(), 1);
}

TEST(RefCount, CopiesShareOneObjectDestroyedOnce) {
  std::vector<std::string> journal;
  {
    ObjectPtr<ITestObject> first = makeObject(&journal);
    {
      ObjectPtr<ITestObject> second(first);
      EXPECT_EQ(countOf(first), 2);
      EXPECT_EQ(first.get(), second.get());
    }
    EXPECT_EQ(countOf(first), 1);
    EXPECT_TRUE(journal.empty());
  }
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

TEST(RefCount, SelfAssignmentChangesNoCount) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  ObjectPtr<ITestObject> &alias = p;
  p = alias;
  EXPECT_EQ(countOf(p), 1);
  EXPECT_TRUE(journal.empty());
}

TEST(RefCount, AssigningSameObjectFromAnotherHandleChangesNoCount) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  ObjectPtr<ITestObject> q(p);
  EXPECT_EQ(countOf(p), 2);
  q = p;
  EXPECT_EQ(countOf(p), 2);
  p = q;
  EXPECT_EQ(countOf(p), 2);
}

TEST(RefCount, AssignmentReleasesOldAndReferencesNew) {
  std::vector<std::string> oldJournal;
  std::vector<std::string> newJournal;
  ObjectPtr<ITestObject> p = makeObject(&oldJournal);
  ObjectPtr<ITestObject> q = makeObject(&newJournal);
  p = q;
  EXPECT_EQ(oldJournal, std::vector<std::string>{"destroyed"});
  EXPECT_EQ(countOf(q), 2);
  EXPECT_TRUE(newJournal.empty());
}

// Writes every reference change into a shared journal, tagged with its name.
class CountingObject : public RefCountImpl<ITestObject> {
public:
  CountingObject(std::vector<std::string> *journal, std::string name)
      : m_journal(journal), m_name(std::move(name)) {}
  int addRef() override {
    m_journal->push_back("addRef " + m_name);
    return RefCountImpl<ITestObject>::addRef();
  }
  int release() override {
    m_journal->push_back("release " + m_name);
    return RefCountImpl<ITestObject>::release();
  }
  int value() const override { return 7; }

private:
  std::vector<std::string> *m_journal;
  std::string m_name;
};

TEST(RefCount, AssignmentReleasesOldBeforeReferencingNew) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p(new CountingObject(&journal, "old"));
  ObjectPtr<ITestObject> q(new CountingObject(&journal, "new"));
  journal.clear();
  p = q;
  EXPECT_EQ(journal, (std::vector<std::string>{"release old", "addRef new"}));
  journal.clear();
  q = ObjectPtr<ITestObject>();
  p = ObjectPtr<ITestObject>();
}

TEST(RefCount, AssignmentFromHandleOwnedByOldPointeeNeedsLocalCopy) {
  // The old pointee holds the only other handle to the new one: copying that
  // handle first keeps the child alive across the parent's release.
  class Owner : public RefCountImpl<ITestObject> {
  public:
    explicit Owner(ObjectPtr<ITestObject> child) : m_child(child) {}
    int value() const override { return 1; }
    ObjectPtr<ITestObject> m_child;
  };
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> child = makeObject(&journal);
  ObjectPtr<ITestObject> holder(new Owner(child));
  child = ObjectPtr<ITestObject>();
  ObjectPtr<ITestObject> keep = static_cast<Owner *>(holder.get())->m_child;
  holder = keep;
  keep = ObjectPtr<ITestObject>();
  EXPECT_TRUE(journal.empty());
  EXPECT_EQ(holder->value(), 42);
  EXPECT_EQ(countOf(holder), 1);
}

TEST(RefCount, AddRefReturnsOneOnFreshObjectAndReleaseZeroOnLast) {
  std::vector<std::string> journal;
  TestObject *raw = new TestObject(&journal);
  EXPECT_EQ(raw->addRef(), 1);
  EXPECT_EQ(raw->addRef(), 2);
  EXPECT_EQ(raw->release(), 1);
  EXPECT_TRUE(journal.empty());
  EXPECT_EQ(raw->release(), 0);
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

TEST(RefCount, NullHandleCanBeCopiedAssignedAndDestroyed) {
  ObjectPtr<ITestObject> empty;
  ObjectPtr<ITestObject> copy(empty);
  ObjectPtr<ITestObject> assigned;
  assigned = empty;
  EXPECT_TRUE(empty.isNull());
  EXPECT_TRUE(copy.isNull());
  EXPECT_TRUE(assigned.isNull());
  EXPECT_FALSE(static_cast<bool>(assigned));
  copy.addRef();
  copy.release();
  EXPECT_TRUE(copy.isNull());
  ObjectPtr<ITestObject> fromNull(static_cast<ITestObject *>(nullptr));
  EXPECT_EQ(fromNull.get(), nullptr);
}

TEST(RefCount, AssigningNullReleasesTheObject) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  p = ObjectPtr<ITestObject>();
  EXPECT_TRUE(p.isNull());
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

TEST(RefCount, HandleAddRefAndReleaseMembers) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  ITestObject *raw = p.get();
  p.addRef(); // an extra reference handed out with the raw pointer
  EXPECT_EQ(countOf(p), 2);
  p.release();
  EXPECT_TRUE(p.isNull());
  EXPECT_TRUE(journal.empty());
  EXPECT_EQ(raw->release(), 0);
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

TEST(RefCount, LockBracketsEveryCountChangeAndDestructionHappensUnderIt) {
  std::vector<std::string> journal;
  ObjectPtr<ILock> lock(new JournalLock(&journal));
  TestObject *raw = new TestObject(&journal, lock.get());
  EXPECT_EQ(raw->addRef(), 1);
  EXPECT_EQ(journal, (std::vector<std::string>{"lock", "unlock"}));
  EXPECT_EQ(raw->addRef(), 2);
  EXPECT_EQ(raw->release(), 1);
  EXPECT_EQ(journal, (std::vector<std::string>{"lock", "unlock", "lock", "unlock", "lock", "unlock"}));
  journal.clear();
  EXPECT_EQ(raw->release(), 0);
  EXPECT_EQ(journal, (std::vector<std::string>{"lock", "destroyed", "unlock"}));
}

TEST(RefCount, HandlesGoThroughTheLockToo) {
  std::vector<std::string> journal;
  ObjectPtr<ILock> lock(new JournalLock(&journal));
  {
    ObjectPtr<ITestObject> p(new TestObject(&journal, lock.get()));
    ObjectPtr<ITestObject> q(p);
  }
  EXPECT_EQ(journal, (std::vector<std::string>{"lock", "unlock", "lock", "unlock", "lock", "unlock", "lock",
                                               "destroyed", "unlock"}));
}

TEST(RefCount, ObjectSharingARecursiveLockMayBeReleasedWhileItIsHeld) {
  std::vector<std::string> journal;
  VellLock *lock = new VellLock();
  ObjectPtr<ILock> lockHandle(lock);
  lock->lock();
  { ObjectPtr<ITestObject> p(new TestObject(&journal, lock)); }
  lock->unlock();
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

TEST(RefCount, TryAddRefSucceedsOnlyWhileReferenced) {
  std::vector<std::string> journal;
  TestObject *raw = new TestObject(&journal);
  EXPECT_FALSE(raw->tryAddRef());
  EXPECT_EQ(raw->refCount(), 0);
  raw->addRef();
  EXPECT_TRUE(raw->tryAddRef());
  EXPECT_EQ(raw->refCount(), 2);
  raw->release();
  raw->release();
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

TEST(RefCount, CopiesOnSeveralThreadsKeepTheCountExact) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&p] {
      for (int i = 0; i < 2000; ++i) {
        ObjectPtr<ITestObject> copy(p);
        ObjectPtr<ITestObject> another(copy);
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(countOf(p), 1);
  EXPECT_TRUE(journal.empty());
}

TEST(RefCount, LastReleaseOnAnotherThreadDestroysThere) {
  std::vector<std::string> journal;
  ObjectPtr<ITestObject> p = makeObject(&journal);
  std::thread other([copy = p]() mutable { copy = ObjectPtr<ITestObject>(); });
  p = ObjectPtr<ITestObject>();
  other.join();
  EXPECT_EQ(journal, std::vector<std::string>{"destroyed"});
}

} // namespace
