/* HXClientKitABI: the binary interface between Belvane and a Helix client kit.
 *
 * A kit is a shared object ("HXClientKit.so") inside the RealMedia application
 * bundle's PrivateFrameworks/HXClientKit.framework/ folder. It exports two
 * class tables as data symbols, named after the classes: "HXClientPlayer" and
 * "HXClientView". Each table is versioned and holds one pointer per operation;
 * a NULL slot (or a slot beyond the table's declared size) is an operation the
 * kit does not offer. The player slots follow the order in which the Helix
 * engine checks them. Plain C, so that a kit can be written in any language.
 */
#ifndef BELVANE_HXCLIENTKITABI_H
#define BELVANE_HXCLIENTKITABI_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HX_CLIENT_KIT_ABI_VERSION 1u
#define HX_CLIENT_PLAYER_CLASS_SYMBOL "HXClientPlayer"
#define HX_CLIENT_VIEW_CLASS_SYMBOL "HXClientView"

/* Content states the kit reports. */
enum { HXContentStateNotLoaded = 0, HXContentStateStopped = 3, HXContentStatePlaying = 4 };

typedef struct HXClientPlayerInstance* HXClientPlayerRef;
typedef struct HXClientViewInstance* HXClientViewRef;

/* Where a kit player's audio goes: the host's output setting, as Belvane
 * reads it (the kinds are BVAudioOutputSetting's). device is the sound
 * server's sink or the ALSA device ("" for the default), or the WAV file's
 * path; valid only during the call. */
enum {
  HXAudioOutputAuto = 1,     /* the system's choice */
  HXAudioOutputPulse = 2,    /* PulseAudio or PipeWire */
  HXAudioOutputAlsa = 3,     /* ALSA */
  HXAudioOutputNull = 4,     /* silent, in real time */
  HXAudioOutputNullFast = 5, /* silent, as fast as decoded */
  HXAudioOutputWav = 6       /* a WAV file */
};
typedef struct HXClientAudioOutput {
  int32_t kind;
  const char* device;
} HXClientAudioOutput;

/* The observer a player reports to; every callback may be NULL. Callbacks
 * arrive on the thread that drives the kit. Strings are UTF-8 and only valid
 * during the call. */
typedef struct HXClientObserver {
  void* context;
  void (*onContentStateChanged)(void* context, int32_t fromState, int32_t toState);
  void (*onContentConcluded)(void* context);
  /* failure and message may be NULL; params are paramCount key/value pairs. */
  void (*onErrorOccurred)(void* context, const char* failure, const char* message,
                          const char* const* paramKeys, const char* const* paramValues, size_t paramCount);
  void (*onLengthChanged)(void* context, uint32_t lengthMilliseconds);
  void (*onAddedStatistic)(void* context, const char* name, const char* value, void* userInfo);
  void (*onModifiedStatistic)(void* context, const char* name, const char* value, void* userInfo);
  void (*onDeletedStatistic)(void* context, const char* name, void* userInfo);
} HXClientObserver;

typedef struct HXClientPlayerClass {
  uint32_t abiVersion; /* HX_CLIENT_KIT_ABI_VERSION */
  uint32_t size;       /* sizeof the table as the kit was built */
  void (*release)(HXClientPlayerRef player);

  /* Operations, in the order of the compatibility check. */
  HXClientPlayerRef (*initInView)(HXClientViewRef view, const HXClientObserver* observer);
  bool (*openWithURL)(HXClientPlayerRef player, const char* url, const char* mimeTypeOrNull);
  int32_t (*contentState)(HXClientPlayerRef player);
  void (*play)(HXClientPlayerRef player);
  void (*pause)(HXClientPlayerRef player);
  void (*stop)(HXClientPlayerRef player);
  bool (*startSeeking)(HXClientPlayerRef player);
  void (*stopSeeking)(HXClientPlayerRef player);
  void (*setPosition)(HXClientPlayerRef player, uint32_t milliseconds);
  uint32_t (*position)(HXClientPlayerRef player);
  uint16_t (*volume)(HXClientPlayerRef player);
  void (*setVolume)(HXClientPlayerRef player, uint16_t volume); /* 0 to 100 */
  bool (*isMuted)(HXClientPlayerRef player);
  void (*mute)(HXClientPlayerRef player, bool muted);
  uint32_t (*length)(HXClientPlayerRef player);
  bool (*isLive)(HXClientPlayerRef player);
  /* A new malloc()ed UTF-8 string the caller free()s, or NULL. */
  char* (*copyStatisticsFor)(HXClientPlayerRef player, const char* statisticName);
  void (*addObserver)(HXClientPlayerRef player, const HXClientObserver* observer, const char* statisticName,
                      void* userInfo);
  void (*removeObserver)(HXClientPlayerRef player, const HXClientObserver* observer, const char* statisticName,
                         void* userInfo);
  /* Optional (a kit may end its table before it): where the audio of the
   * next openWithURL goes. A kit without it, or not told, chooses itself. */
  void (*setAudioOutput)(HXClientPlayerRef player, const HXClientAudioOutput* output);
} HXClientPlayerClass;

typedef struct HXClientViewClass {
  uint32_t abiVersion; /* HX_CLIENT_KIT_ABI_VERSION */
  uint32_t size;       /* sizeof the table as the kit was built */
  bool isViewClass;    /* the class is a host view */
  void (*release)(HXClientViewRef view);
  HXClientViewRef (*initWithFrame)(double x, double y, double width, double height);
} HXClientViewClass;

#ifdef __cplusplus
}
#endif

#endif /* BELVANE_HXCLIENTKITABI_H */
