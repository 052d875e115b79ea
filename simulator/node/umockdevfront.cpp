#include "simulator/node/umockdevfront.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <umockdev.h>

#include "simulator/node/fronterror.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr const char* kFileKey = "i2c-dev-file";
constexpr const char* kDevicesFolder = "/dev/";

template<typename T>
struct Unref
{
    void operator()(T* object) const { g_object_unref(object); }
};
template<typename T>
using Object = std::unique_ptr<T, Unref<T>>;

/// Copies what the client's pointer at an offset points to into this process; null if that fails.
Object<UMockdevIoctlData> resolve(UMockdevIoctlData* data, std::size_t offset, std::size_t length)
{
    GError* error = nullptr;
    Object<UMockdevIoctlData> resolved(umockdev_ioctl_data_resolve(data, offset, length, &error));
    g_clear_error(&error);
    return resolved;
}

[[noreturn]] void throwError(const std::string& what, GError* error)
{
    const std::string reason = error->message;
    g_error_free(error);
    throw FrontError(what + ": " + reason);
}

void* pointerIn(const UMockdevIoctlData* data)
{
    void* pointer = nullptr;
    std::memcpy(&pointer, data->data, sizeof(pointer));
    return pointer;
}

void complete(UMockdevIoctlClient* client, ssize_t result)
{
    if (result < 0)
        umockdev_ioctl_client_complete(client, -1, static_cast<int>(-result));
    else
        umockdev_ioctl_client_complete(client, result, 0);
}

/// Shared by the front and umockdev's thread. That thread outlives the front, and so may processes that the program has
/// started; they then find no node.
struct Service
{
    std::mutex m_mutex;           // held while the node is used
    I2cDevNode* m_node = nullptr; // null after the end of the front
};

/// The node, opened by a process.
struct OpenedNode
{
    std::shared_ptr<Service> m_service;
    std::unique_ptr<I2cDevFile> m_file; // null: opened after the end of the front
};

/// Answers a call of @p client with the file that it opened.
template<typename Call>
void serve(UMockdevIoctlClient* client, Call call)
{
    const auto& opened = *static_cast<OpenedNode*>(g_object_get_data(G_OBJECT(client), kFileKey));
    const std::lock_guard<std::mutex> lock(opened.m_service->m_mutex);
    if (opened.m_service->m_node == nullptr || opened.m_file == nullptr)
        complete(client, -ENODEV);
    else
        complete(client, call(*opened.m_file));
}

Object<UMockdevIoctlData> argumentOf(UMockdevIoctlClient* client)
{
    UMockdevIoctlData* argument = nullptr;
    g_object_get(client, "arg", &argument, nullptr);
    return Object<UMockdevIoctlData>(argument);
}

/// Copies the buffers of a combined transfer, except those that the node refuses because of their length.
bool resolveMessages(UMockdevIoctlData* transfer, std::vector<Object<UMockdevIoctlData>>& resolved)
{
    auto* header = reinterpret_cast<i2c_rdwr_ioctl_data*>(transfer->data);
    const std::size_t count = header->nmsgs;
    if (header->msgs == nullptr || count == 0 || count > I2C_RDWR_IOCTL_MAX_MSGS)
        return true;
    resolved.push_back(resolve(transfer, offsetof(i2c_rdwr_ioctl_data, msgs), count * sizeof(i2c_msg)));
    if (resolved.back() == nullptr)
        return false;
    UMockdevIoctlData* messages = resolved.back().get();
    for (std::size_t i = 0; i < count; ++i) {
        const auto length = reinterpret_cast<const i2c_msg*>(messages->data)[i].len;
        if (length == 0)
            continue;
        resolved.push_back(resolve(messages, i * sizeof(i2c_msg) + offsetof(i2c_msg, buf), length));
        if (resolved.back() == nullptr)
            return false;
    }
    return true;
}

/// Copies what the argument of a request points to into this process.
bool resolveArgument(unsigned long request, UMockdevIoctlData* argument,
                     std::vector<Object<UMockdevIoctlData>>& resolved)
{
    const auto length = request == I2C_FUNCS   ? sizeof(unsigned long)
                        : request == I2C_RDWR  ? sizeof(i2c_rdwr_ioctl_data)
                        : request == I2C_SMBUS ? sizeof(i2c_smbus_ioctl_data)
                                               : 0;
    if (length == 0 || pointerIn(argument) == nullptr)
        return true; // a number, or something that the node refuses
    resolved.push_back(resolve(argument, 0, length));
    UMockdevIoctlData* content = resolved.back().get();
    if (content == nullptr)
        return false;
    if (request == I2C_RDWR)
        return resolveMessages(content, resolved);
    if (request == I2C_SMBUS && reinterpret_cast<const i2c_smbus_ioctl_data*>(content->data)->data != nullptr) {
        resolved.push_back(resolve(content, offsetof(i2c_smbus_ioctl_data, data), sizeof(i2c_smbus_data)));
        return resolved.back() != nullptr;
    }
    return true;
}

gboolean handleIoctl(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client, gpointer /*data*/)
{
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    const auto argument = argumentOf(client);
    std::vector<Object<UMockdevIoctlData>> resolved; // kept until the answer is sent
    if (!resolveArgument(request, argument.get(), resolved))
        complete(client, -EFAULT);
    else
        serve(client, [&](I2cDevFile& file) { return file.ioctl(request, pointerIn(argument.get())); });
    return TRUE;
}

gboolean handleRead(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client, gpointer /*data*/)
{
    const auto argument = argumentOf(client);
    const auto count = static_cast<std::size_t>(argument->data_len);
    serve(client, [&](I2cDevFile& file) { return file.read(argument->data, count); });
    return TRUE;
}

gboolean handleWrite(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client, gpointer /*data*/)
{
    const auto argument = argumentOf(client);
    const auto count = static_cast<std::size_t>(argument->data_len);
    serve(client, [&](I2cDevFile& file) { return file.write(argument->data, count); });
    return TRUE;
}

void handleConnected(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client, gpointer data)
{
    auto opened = std::make_unique<OpenedNode>();
    opened->m_service = *static_cast<std::shared_ptr<Service>*>(data);
    const std::lock_guard<std::mutex> lock(opened->m_service->m_mutex);
    if (opened->m_service->m_node != nullptr)
        opened->m_file = opened->m_service->m_node->open();
    g_object_set_data_full(G_OBJECT(client), kFileKey, opened.release(),
                           [](gpointer object) { delete static_cast<OpenedNode*>(object); });
}

/// umockdev aborts the process if it cannot create its folder or socket, so this tries first.
void checkTemporaryFolder(const std::string& path)
{
    const std::string folder = g_get_tmp_dir();
    std::string trial = folder + "/umockdev.XXXXXX";
    if ((trial + "/ioctl" + path).size() >= sizeof(sockaddr_un::sun_path))
        throw FrontError("the folder for temporary files, " + folder +
                         ", has a name too long for a socket; set TMPDIR to a shorter one");
    if (mkdtemp(trial.data()) == nullptr)
        throw FrontError("the folder for temporary files, " + folder + ", cannot be written: " + std::strerror(errno) +
                         "; set TMPDIR to a writable one");
    rmdir(trial.c_str());
}

/// umockdev reads a transfer's bytes from the program even if there are none, and GLib warns about that.
void silenceEmptyTransfers()
{
    const auto ignore = [](const char*, GLogLevelFlags, const char*, gpointer) {};
    g_log_set_handler("GLib-GIO", G_LOG_LEVEL_CRITICAL, ignore, nullptr);
}

std::string rootOf(UMockdevTestbed* testbed)
{
    char* root = umockdev_testbed_get_root_dir(testbed);
    std::string folder = root;
    g_free(root);
    return folder;
}

/// Creates the entries in /dev and /sys; i2cdetect uses the latter.
void addDevice(UMockdevTestbed* testbed, const std::string& path)
{
    const std::string name = path.substr(std::strlen(kDevicesFolder));
    std::string sysName = name;
    std::replace(sysName.begin(), sysName.end(), '/', '!'); // as the kernel names it
    const std::string description = "P: /devices/simulated/" + sysName +
                                    "\n"
                                    "N: " +
                                    name +
                                    "=00\n" // with content the node is a file; without content, a terminal
                                    "E: SUBSYSTEM=i2c-dev\n"
                                    "E: DEVNAME=" +
                                    path +
                                    "\n"
                                    "A: name=Simulated bus\\n\n";
    GError* error = nullptr;
    if (umockdev_testbed_add_from_string(testbed, description.c_str(), &error) == FALSE)
        throwError("cannot create the node " + path, error);
}

Object<UMockdevIoctlBase> handlerFor(const std::shared_ptr<Service>& service)
{
    Object<UMockdevIoctlBase> handler(umockdev_ioctl_base_new());
    const auto release = [](gpointer data, GClosure*) { delete static_cast<std::shared_ptr<Service>*>(data); };
    g_signal_connect_data(handler.get(), "client-connected", G_CALLBACK(handleConnected),
                          new std::shared_ptr<Service>(service), release, GConnectFlags{});
    g_signal_connect(handler.get(), "handle-ioctl", G_CALLBACK(handleIoctl), nullptr);
    g_signal_connect(handler.get(), "handle-read", G_CALLBACK(handleRead), nullptr);
    g_signal_connect(handler.get(), "handle-write", G_CALLBACK(handleWrite), nullptr);
    return handler;
}

void attach(UMockdevTestbed* testbed, const std::string& path, UMockdevIoctlBase* handler)
{
    GError* error = nullptr;
    if (umockdev_testbed_attach_ioctl(testbed, path.c_str(), handler, &error) == FALSE)
        throwError("cannot serve the node " + path, error);
}

} // namespace

class UmockdevFrontPrivate
{
public:
    explicit UmockdevFrontPrivate(I2cDevNode& node) { m_service->m_node = &node; }
    ~UmockdevFrontPrivate()
    {
        withdrawNode();
        m_testbed.reset();
        m_handler.reset();
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored); // umockdev sometimes leaves files behind
    }
    UmockdevFrontPrivate(const UmockdevFrontPrivate&) = delete;
    UmockdevFrontPrivate& operator=(const UmockdevFrontPrivate&) = delete;

    const std::shared_ptr<Service> m_service = std::make_shared<Service>();
    Object<UMockdevTestbed> m_testbed;
    Object<UMockdevIoctlBase> m_handler;
    std::filesystem::path m_folder; // of umockdev, in the temporary directory

private:
    /// Waits for the current call to end; later ones find no node.
    void withdrawNode()
    {
        const std::lock_guard<std::mutex> lock(m_service->m_mutex);
        m_service->m_node = nullptr;
    }
};

UmockdevFront::UmockdevFront(I2cDevNode& node, const std::string& path) : m_data(new UmockdevFrontPrivate(node))
{
    checkTemporaryFolder(path);
    silenceEmptyTransfers();
    m_data->m_testbed.reset(umockdev_testbed_new());
    m_data->m_folder = rootOf(m_data->m_testbed.get());
    addDevice(m_data->m_testbed.get(), path);
    m_data->m_handler = handlerFor(m_data->m_service);
    attach(m_data->m_testbed.get(), path, m_data->m_handler.get());
}

UmockdevFront::~UmockdevFront() = default;

} // namespace VorelKestrel::Simulator
