#pragma once

/// Count of the users of a library or module, for its start and end.
///
/// Not checked against underflow, on purpose: an end without a start takes the count to -1 and does nothing, and the
/// start that follows only brings it back to 0. Not locked: the host starts and ends its libraries on one thread.
class KVOBasUseCount
{
public:
    /// @return true for the first user; the caller's tally of running modules is then 1 higher
    bool Start(int& tally) noexcept
    {
        if (m_users++ != 0)
            return false;
        ++tally;
        return true;
    }

    /// @return true for the last user; the tally is then 1 lower
    bool End(int& tally) noexcept
    {
        if (m_users-- != 1)
            return false;
        --tally;
        return true;
    }

private:
    int m_users = 0;
};
