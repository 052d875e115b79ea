#ifndef TESTS_SUPPORT_HANDOVER_H
#define TESTS_SUPPORT_HANDOVER_H

#include <functional>
#include <ostream>

namespace testsupport {

/// The result of passing many values from producers to consumers through something that carries pointers.
struct HandOver
{
    static constexpr int kProducers = 8;
    static constexpr int kConsumers = 8;

    /// The number of values: AUTHCHIP_TEST_VALUES, which the soak tests set to a million, or 80,000.
    static int values();

    int received = 0;      ///< values that reached a consumer
    int receivedTwice = 0; ///< values that were received more than once
    int outOfOrder = 0;    ///< values that a consumer got after a later one of the same producer

    static HandOver everythingOnce()
    {
        HandOver result;
        result.received = values();
        return result;
    }

    friend bool operator==(const HandOver& left, const HandOver& right)
    {
        return left.received == right.received && left.receivedTwice == right.receivedTwice &&
               left.outOfOrder == right.outOfOrder;
    }

    friend std::ostream& operator<<(std::ostream& out, const HandOver& result)
    {
        return out << result.received << " received, " << result.receivedTwice << " twice, " << result.outOfOrder
                   << " out of order";
    }
};

/// Passes HandOver::values() values, with one thread for each producer and consumer. @p give stores a value, @p take
/// waits for one. Several threads call both at once.
HandOver handOver(const std::function<void(void*)>& give, const std::function<void*()>& take);

} // namespace testsupport

#endif
