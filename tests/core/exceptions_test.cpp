#include <vorn/exceptions.hpp>

#include "core/throw_status.h"

#include <exception>
#include <gtest/gtest.h>
#include <thread>
#include <type_traits>
#include <vector>

using namespace vorn;

namespace {

template <class E>
void ExpectDefaultMessage(const char* message)
{
    E error;
    EXPECT_STREQ(error.What(), message);
}

template <class Base, class E>
bool IsCaughtAs()
{
    try {
        throw E("thrown");
    } catch (const Base& error) {
        return std::string(error.What()) == "thrown";
    } catch (...) {
        return false;
    }
}

class Counted : public Countable {
public:
    explicit Counted(int& deleted) : deleted_(deleted) {}

protected:
    ~Counted() override { ++deleted_; }

private:
    int& deleted_;
};

}  // namespace

TEST(Exceptions, DefaultConstructorsKeepTheDefaultMessages)
{
    ExpectDefaultMessage<Exception>("Exception");
    ExpectDefaultMessage<RuntimeError>("Runtime error");
    ExpectDefaultMessage<LogicError>("Logic error");
    ExpectDefaultMessage<InvalidArgument>("Invalid argument");
    ExpectDefaultMessage<LengthError>("Length error");
    ExpectDefaultMessage<OutOfRange>("Out of range");
    ExpectDefaultMessage<LockError>("Lock error");
    ExpectDefaultMessage<OverflowError>("Overflow error");
    ExpectDefaultMessage<UnderflowError>("Underflow error");
    ExpectDefaultMessage<RangeError>("Range error");
    ExpectDefaultMessage<BadAlloc>("Bad allocation");
    ExpectDefaultMessage<SyncError>("Syncronization error");
    ExpectDefaultMessage<NotImplementedError>("Not implemented");
}

TEST(Exceptions, DeriveFromTheirBases)
{
    EXPECT_TRUE((std::is_base_of_v<Exception, RuntimeError>));
    EXPECT_TRUE((std::is_base_of_v<Exception, LogicError>));
    EXPECT_TRUE((IsCaughtAs<LogicError, InvalidArgument>()));
    EXPECT_TRUE((IsCaughtAs<LogicError, LengthError>()));
    EXPECT_TRUE((IsCaughtAs<LogicError, OutOfRange>()));
    EXPECT_TRUE((IsCaughtAs<LogicError, LockError>()));
    EXPECT_TRUE((IsCaughtAs<RuntimeError, OverflowError>()));
    EXPECT_TRUE((IsCaughtAs<RuntimeError, UnderflowError>()));
    EXPECT_TRUE((IsCaughtAs<RuntimeError, RangeError>()));
    EXPECT_TRUE((IsCaughtAs<Exception, BadAlloc>()));
    EXPECT_TRUE((IsCaughtAs<Exception, SyncError>()));
    EXPECT_TRUE((IsCaughtAs<Exception, NotImplementedError>()));
    EXPECT_FALSE((IsCaughtAs<RuntimeError, BadAlloc>()));
    EXPECT_FALSE((IsCaughtAs<LogicError, SyncError>()));
    EXPECT_FALSE((std::is_base_of_v<std::exception, Exception>));
}

TEST(Exceptions, OwnACopyOfTheMessage)
{
    char text[] = "original";
    RuntimeError error(text);
    text[0] = 'O';
    EXPECT_STREQ(error.What(), "original");
    EXPECT_NE(static_cast<const void*>(error.What()), static_cast<const void*>(text));
}

TEST(Exceptions, ANullMessageStaysNull)
{
    const LogicError error(nullptr);
    EXPECT_EQ(error.What(), nullptr);
    const LogicError copy(error);
    EXPECT_EQ(copy.What(), nullptr);
}

TEST(Exceptions, CopiesHaveTheirOwnText)
{
    const OutOfRange error("position");
    const OutOfRange copy(error);
    EXPECT_STREQ(copy.What(), "position");
    EXPECT_NE(copy.What(), error.What());
}

namespace {

// A client's exception, which words its message itself.
class Worded : public RuntimeError {
public:
    const char* What() const override { return "in its own words"; }
};

}  // namespace

TEST(Exceptions, CopiesAndAssignmentsTakeWhatTheSourceSays)
{
    const Worded source;
    const Exception copy(source);
    EXPECT_STREQ(copy.What(), "in its own words");
    RuntimeError target("old");
    target = source;
    EXPECT_STREQ(target.What(), "in its own words");
    try {
        throw Worded();
    } catch (const Exception& error) {
        EXPECT_STREQ(error.What(), "in its own words");
    }
}

TEST(Exceptions, AssignmentReplacesTheMessageWithACopy)
{
    BadAlloc target("old");
    const BadAlloc source("new");
    target = source;
    EXPECT_STREQ(target.What(), "new");
    EXPECT_NE(target.What(), source.What());
    target = BadAlloc(nullptr);
    EXPECT_EQ(target.What(), nullptr);
}

TEST(Exceptions, AssignmentToItselfKeepsTheMessage)
{
    BadAlloc error("kept");
    BadAlloc& alias = error;
    error = alias;
    EXPECT_STREQ(error.What(), "kept");
}

TEST(Bases, AreAbstractAndHaveVirtualDestructors)
{
    EXPECT_TRUE(std::is_abstract_v<Waitable> && std::has_virtual_destructor_v<Waitable>);
    EXPECT_TRUE(std::is_abstract_v<Runnable> && std::has_virtual_destructor_v<Runnable>);
    EXPECT_TRUE(std::is_abstract_v<Lockable> && std::has_virtual_destructor_v<Lockable>);
    EXPECT_TRUE(std::is_abstract_v<IStream> && std::has_virtual_destructor_v<IStream>);
    EXPECT_TRUE(std::is_abstract_v<OStream> && std::has_virtual_destructor_v<OStream>);
}

TEST(Bases, NonCopyableForbidsCopyingAndHasNoVirtualOperations)
{
    EXPECT_FALSE(std::is_copy_constructible_v<NonCopyable>);
    EXPECT_FALSE(std::is_copy_assignable_v<NonCopyable>);
    EXPECT_FALSE(std::is_polymorphic_v<NonCopyable>);
}

TEST(Countable, ReleasedOnceAfterConstructionIsDeleted)
{
    int deleted = 0;
    const Countable* object = new Counted(deleted);
    object->Release();
    EXPECT_EQ(deleted, 1);
}

TEST(Countable, LivesUntilTheLastReferenceIsGone)
{
    int deleted = 0;
    const Countable* object = new Counted(deleted);
    object->AddRef();
    object->AddRef();
    object->Release();
    object->Release();
    EXPECT_EQ(deleted, 0);
    object->Release();
    EXPECT_EQ(deleted, 1);
}

TEST(Countable, IsDeletedByExactlyOneOfManyThreads)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    int deleted = 0;
    const Countable* object = new Counted(deleted);
    for (int i = 1; i < kThreads; ++i) object->AddRef();
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([object] {
            for (int round = 0; round < kRounds; ++round) {
                object->AddRef();
                object->Release();
            }
            object->Release();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(deleted, 1);
}

TEST(ThrowForStatus, ThrowsWhatTheRuleForTheStatusSays)
{
    constexpr detail::ThrowRule kRules[] = {
        {VORN_E_NO_MEMORY, detail::Throw<BadAlloc>, "Bad allocation"},
        {VORN_E_RANGE, detail::Throw<OutOfRange>, "range"},
        {detail::kAnyStatus, detail::Throw<RuntimeError>, "other"},
    };
    EXPECT_THROW(detail::ThrowForStatus(VORN_E_NO_MEMORY, kRules), BadAlloc);
    EXPECT_THROW(detail::ThrowForStatus(VORN_E_RANGE, kRules), OutOfRange);
    try {
        detail::ThrowForStatus(VORN_E_SYSTEM, kRules);
    } catch (const RuntimeError& error) {
        EXPECT_STREQ(error.What(), "other");
    }
}
