#include "tool/chip/missingnode.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel::Tool;

MissingNode missing(const std::string& device)
{
    MissingNode node;
    node.device = device;
    return node;
}

bool says(const MissingNode& node, const std::string& words)
{
    return adviceAbout(node).find(words) != std::string::npos;
}

TEST(MissingNodeTest, IsMissingAloneIfTheDriverHasItsBus)
{
    MissingNode node = missing("/dev/i2c-7");
    node.isInDriver = true;
    node.isInKernel = true;
    EXPECT_TRUE(says(node, "only its node is missing")) << adviceAbout(node);
    EXPECT_TRUE(says(node, "PrivateDevices=")) << adviceAbout(node);
    EXPECT_TRUE(says(node, "mdev -s")) << adviceAbout(node);
    EXPECT_FALSE(says(node, "modprobe")) << adviceAbout(node);
}

TEST(MissingNodeTest, LacksTheDriverIfOnlyTheKernelHasItsBus)
{
    MissingNode node = missing("/dev/i2c-7");
    node.isInKernel = true;
    EXPECT_TRUE(says(node, "modprobe i2c-dev")) << adviceAbout(node);
    EXPECT_FALSE(says(node, "device tree")) << adviceAbout(node);
}

TEST(MissingNodeTest, MayHaveAnotherNumberIfThereAreOthers)
{
    MissingNode node = missing("/dev/i2c-7");
    node.nodes = {"/dev/i2c-0", "/dev/i2c-10"};
    EXPECT_TRUE(says(node, "There are /dev/i2c-0, /dev/i2c-10. ")) << adviceAbout(node);
    EXPECT_TRUE(says(node, "their numbers may change with the kernel")) << adviceAbout(node);
    EXPECT_TRUE(says(node, "enable it in the device tree")) << adviceAbout(node);
}

TEST(MissingNodeTest, ListsAFewNodesOfMany)
{
    MissingNode node = missing("/dev/i2c-99");
    for (int i = 0; i < 7; ++i)
        node.nodes.push_back("/dev/i2c-" + std::to_string(i));
    EXPECT_TRUE(says(node, "/dev/i2c-5 and others. ")) << adviceAbout(node);
    EXPECT_FALSE(says(node, "/dev/i2c-6")) << adviceAbout(node);
}

TEST(MissingNodeTest, NeedsDriverAndBusIfThereIsNone)
{
    EXPECT_TRUE(says(missing("/dev/i2c-7"), "There is no /dev/i2c-* at all"));
    EXPECT_TRUE(says(missing("/dev/i2c-7"), "modprobe i2c-dev"));
    EXPECT_TRUE(says(missing("/dev/i2c-7"), "PrivateDevices="));
}

TEST(MissingNodeTest, IsNamedWithTheTargetOfItsLink)
{
    MissingNode node = missing("/dev/authchip");
    node.target = "/dev/i2c-3";
    EXPECT_TRUE(says(node, "It is a symbolic link to /dev/i2c-3, which does not exist")) << adviceAbout(node);
}

TEST(MissingNodeTest, IsNamedAsItIsMeant)
{
    for (const char* device : {"1", "01", "i2c-1", "i2c1", "/dev/i2c1", "/dev/i2c/1", "/dev/i2c_1", "/dev/i2c-01",
                               "/dev/I2C-1", "/dev/i2c-1/", "/sys/bus/i2c/devices/i2c-1"})
        EXPECT_TRUE(says(missing(device), "If you mean /dev/i2c-1, name it so")) << device;
    for (const char* device : {"/dev/i2c-1", "/dev/ttyS1", "/dev/i2c-", ""})
        EXPECT_FALSE(says(missing(device), "If you mean")) << device;
    EXPECT_TRUE(says(missing("/dev/i2c-0/"), "If you mean /dev/i2c-0, name it so"));
}

TEST(MissingNodeTest, MayBeAnAddressInThePlaceOfTheNode)
{
    EXPECT_TRUE(says(missing("0x2a"), "looks like an address"));
    EXPECT_FALSE(says(missing("0x2a0"), "looks like an address"));
    EXPECT_FALSE(says(missing("42"), "looks like an address"));
}

} // namespace
