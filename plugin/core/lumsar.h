// Lumsar: the one object that holds all state of the plug-in.
// Made by the exported entry points (entry, channel), which drive it; reached from the IPC
// library's callbacks through their userData, and from event threads.
//
//   host ──entry points──▶ Lumsar ──eight VDI_ functions──▶ IPC library ══▶ camera service
//   host ◀──send, events── Lumsar ◀──four callbacks──────── IPC library ◀══ camera service
//
// Threads: Init, Uninit, Disconnect and HandleCommand are thread-safe, each holds m_mutex from
// begin to end and none calls another. All other operations take no lock and run on their caller's
// thread: the host's, the IPC library's for the On... callbacks and what they call, or that of
// KeepIpcConnection. The host's calling order (initialise, use, de-initialise) keeps the client,
// the callables and the texts steady while others read them.
#pragma once

#include <QByteArray>
#include <QMutex>
#include <QObject>
#include <QString>
#include <cstdint>
#include <thread>

#include "core/export.h"
#include "lumsar/plugin.h"
#include "lumsar/vdi_ipc.h"

enum DataChannel : std::int32_t {
  DATA_CHANNEL_SPICE = 0,
  DATA_CHANNEL_RDP = 2,
};

using RdpPostEventFunc = void (*)(lumsar::RedirEvent event, char* data, int length);

class LUMSAR_EXPORT Lumsar : public QObject {
  Q_OBJECT

 public:
  // The object, made on the first call; null when it cannot be allocated.
  static Lumsar* GetInstance();
  Lumsar();
  // Never run in practice: the object lives until the process ends.
  ~Lumsar() override;

  // Binds the IPC library in `libDir` and makes its client under `clientName`.
  bool Init(QString libDir, QString clientName);
  // Destroys the client and unloads the library; everything else keeps its value.
  void Uninit();

  // Keeps the configuration text and builds the policy from it; false when it is not JSON.
  bool SetConfigAndPolicy(QString config);
  // Records the VM's version and writes it into the stored policy.
  void UpdatePolicy(unsigned short major, unsigned short minor);

  // Carries out one JSON command of the host; a Status. `output` and `outputSize`: see
  // HandleGetCameraListCmd.
  int HandleCommand(QString cmd, char* output, int& outputSize);
  // Asks the service for its cameras. `output` has `outputSize` bytes and holds a zero
  // byte on entry; on return it holds the list, zero-terminated, and `outputSize` its length. A
  // null or too small buffer gives 0 and in `outputSize` the size that is needed.
  int HandleGetCameraListCmd(char* output, int& outputSize);
  // Sends the bytes of `data` as an IPC message of `type`; the status of SendIpcData.
  int TransferCmd2CameraService(QByteArray& data, int type);
  // Tells the service to share all cameras with a session of the VM.
  int RedirectAll(int sessionId);

  // Binds all eight functions of the IPC library in `libDir`, or none of them usably.
  bool LoadControllerLibrary(QString libDir);
  void UnloadControllerLibrary();

  // The connection to the camera service. The library's own error codes are passed through.
  int Connect();
  int AsyncConnect(QString ipcName);
  int Disconnect();
  bool IsIpcConnected();
  // Body of a thread that reconnects every three seconds while m_keepAliveRunning. Nothing here
  // starts it; whoever does sets the flag first and joins the thread.
  static void KeepIpcConnection(Lumsar* self);

  // Frames `length` bytes at `data` (null: none) and sends them to the service; a Status.
  int SendIpcData(int type, int param, unsigned char* data, int length);
  // As SendIpcData, and waits for the reply. `*replyLength`: capacity on entry, size on return.
  int IpcSyncCall(int type, unsigned char* request, unsigned int requestLength,
                  unsigned char* reply, unsigned int* replyLength);
  // Tells the service to unshare all cameras.
  int UnredirectAll();
  // Tells the VM to remove all virtual cameras, over SPICE only; an RDP VM is never told.
  int UnredirectAllVCams();

  // The IPC library's callbacks. `data` is one complete message in the library's own buffer.
  static int OnConnect(int connectId, void* userData);
  static int OnSend(int connectId, void* userData);
  static int OnReceive(int connectId, unsigned char* data, int length, void* userData);
  static int OnClose(int connectId, int error, void* userData);

  // Makes, stores and returns a new token, 0 to 9999.
  unsigned short GenerateToken();
  // Sends the RDP host's HELLO, under a new token.
  void RdpSendHello();

  static Lumsar* m_instance;

  // The members are public: the exported entry points are the other half of this class.
  // The flags and numbers that several threads touch at once go through relaxed.h.
  lumsar::SpiceSendFunc m_spiceSendFunc;
  lumsar::SpicePostEventFunc m_spicePostEventFunc;
  QString m_defaultConfig;
  lumsar::RdpSendFunc m_rdpSendFunc = nullptr;
  RdpPostEventFunc m_rdpPostEventFunc = nullptr;
  void* m_ipcClient = nullptr;
  lumsar::IpcClientParams m_ipcClientParams;
  bool m_initialized = false;
  bool m_channelOpened = false;  // camera data may pass to the VM
  bool m_replyArrived = false;   // cleared before each request; nothing sets it
  QString m_ipcName = QStringLiteral("");
  QString m_configJson = QStringLiteral("");
  QString m_policyJson;
  QByteArray m_spareBytes;  // unused
  lumsar::VDI_CreateIpcClient_t* m_createIpcClient = nullptr;
  lumsar::VDI_DestroyIpcClient_t* m_destroyIpcClient = nullptr;
  lumsar::VDI_ConnectIpcClient_t* m_connectIpcClient = nullptr;
  lumsar::VDI_AsyncConnectIpcClient_t* m_asyncConnectIpcClient = nullptr;
  lumsar::VDI_DisconnectIpcClient_t* m_disconnectIpcClient = nullptr;
  lumsar::VDI_IsIpcClientConnected_t* m_isIpcClientConnected = nullptr;
  lumsar::VDI_IpcClientSendData_t* m_ipcClientSendData = nullptr;
  lumsar::VDI_IpcClientSyncCall_t* m_ipcClientSyncCall = nullptr;
  void* m_libraryHandle = nullptr;
  std::uint16_t m_token = 0;
  QString m_vmId = QStringLiteral("");
  std::uint16_t m_vmVersionMajor = 1;
  std::uint16_t m_vmVersionMinor = 0;
  std::int32_t m_dataChannel = DATA_CHANNEL_SPICE;
  QMutex m_mutex;
  std::thread m_keepAliveThread;  // never started here
  bool m_keepAliveRunning = false;
};
