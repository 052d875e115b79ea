#include "tests/support/handover.h"

#include <array>
#include <cstdlib>
#include <thread>
#include <vector>

namespace testsupport {

namespace {

struct Value
{
    int producer = 0;
    int number = 0;                // counts up per producer, from 1
    int receptions = 0;            // written by the consumers; only the hand-over protects it, on purpose
    static constexpr int kEnd = 0; // the number of the last word to a consumer
};

struct Received
{
    HandOver sum;
    std::array<int, HandOver::kProducers> newest = {}; // the number last seen, per producer
};

void takeUntilTheEnd(const std::function<void*()>& take, Received& received)
{
    for (;;) {
        auto& value = *static_cast<Value*>(take());
        if (value.number == Value::kEnd)
            return;
        int& newest = received.newest.at(static_cast<std::size_t>(value.producer));
        ++received.sum.received;
        received.sum.receivedTwice += value.receptions++ == 0 ? 0 : 1;
        received.sum.outOfOrder += value.number > newest ? 0 : 1;
        newest = value.number;
    }
}

/// The values of one producer.
std::vector<Value> numberedValues(int producer)
{
    std::vector<Value> values(static_cast<std::size_t>(HandOver::values() / HandOver::kProducers));
    int number = 0;
    for (Value& value : values) {
        value.producer = producer;
        value.number = ++number;
    }
    return values;
}

} // namespace

int HandOver::values()
{
    constexpr int kInTheQuickSuite = 80'000;
    const char* const wanted = std::getenv("AUTHCHIP_TEST_VALUES");
    return wanted != nullptr ? std::atoi(wanted) : kInTheQuickSuite;
}

HandOver handOver(const std::function<void(void*)>& give, const std::function<void*()>& take)
{
    std::vector<std::vector<Value>> values(HandOver::kProducers);
    std::vector<Received> received(HandOver::kConsumers);

    std::vector<std::thread> consumers;
    consumers.reserve(HandOver::kConsumers);
    for (Received& one : received)
        consumers.emplace_back([&take, &one] { takeUntilTheEnd(take, one); });
    std::vector<std::thread> producers;
    producers.reserve(HandOver::kProducers);
    for (int producer = 0; producer < HandOver::kProducers; ++producer) {
        producers.emplace_back([&give, &mine = values.at(static_cast<std::size_t>(producer)), producer] {
            mine = numberedValues(producer); // here, because what is written before give() must be seen after take()
            for (Value& value : mine)
                give(&value);
        });
    }
    for (std::thread& producer : producers)
        producer.join();
    std::vector<Value> ends(HandOver::kConsumers);
    for (Value& end : ends)
        give(&end);
    for (std::thread& consumer : consumers)
        consumer.join();

    HandOver sum;
    for (const Received& one : received) {
        sum.received += one.sum.received;
        sum.receivedTwice += one.sum.receivedTwice;
        sum.outOfOrder += one.sum.outOfOrder;
    }
    return sum;
}

} // namespace testsupport
