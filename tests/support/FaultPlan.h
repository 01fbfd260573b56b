#pragma once

// A lever on the calls of the system that the file layer makes: the Nth one fails, comes short, or is the last that the
// process makes.

#include <cstddef>

namespace Test
{

/// While it lives, calls of the file layer are counted from 1, and the chosen one goes wrong. One at a time.
///
///     for (int n = 1;; ++n)
///     {
///         FaultPlan plan(FaultPlan::Fail, n, ENOSPC);
///         ... the operation ...
///         if (!plan.Reached())
///             break; // it makes fewer than n calls: all of them have failed once
///     }
class FaultPlan
{
public:
    enum Kind
    {
        Count,    // nothing goes wrong
        Fail,     // call `n` does nothing and fails with `error`
        FailFrom, // so does every later one that reads, writes or makes something; closing and removing work
        Short,    // call `n`, if it transfers, moves half of what it is asked (at least 1 byte)
        Kill,     // the process is killed before call `n`
    };

    explicit FaultPlan(Kind kind, int n = 0, int error = 0);
    ~FaultPlan();
    FaultPlan(const FaultPlan&) = delete;
    FaultPlan& operator=(const FaultPlan&) = delete;

    /// Whether call `n` was made.
    bool Reached() const;
    /// Calls made so far.
    int Calls() const;
    /// The name of call `n`, once reached.
    const char* What() const;
    /// Handles of files opened and not closed while the plan lived.
    int OpenHandles() const;
};

} // namespace Test
