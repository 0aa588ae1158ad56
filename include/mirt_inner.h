/* Forwarders to the host library's report interface, for code inside the framework. Plain C can
 * include this header. */
#ifndef MIRT_INNER_H
#define MIRT_INNER_H

#include "mirt_comm.h"

/* In C an inline function that is not static has no definition to link with. */
#ifdef __cplusplus
#define MIRT_INLINE inline
#else
#define MIRT_INLINE static inline
#endif

MIRT_INLINE int32_t MIRT_GetPrimaryKeyInner(const MIRT_ERRREPORT_S* errRpt,
                                            MIRT_PRIMARY_KEY_S* key) {
  return MIRT_GetPrimaryKeySub(errRpt, key);
}

MIRT_INLINE MIRT_ERRREPORT_S* MIRT_CreateErrRptInner(MIRT_PRIMARY_KEY_S* pKey) {
  return MIRT_CreateErrRptSub(pKey);
}

MIRT_INLINE void MIRT_DestoryErrRptInner(const MIRT_ERRREPORT_S* errRpt) {
  MIRT_DestoryErrRptSub(errRpt);
}

MIRT_INLINE int32_t MIRT_AddParamToErrRptInner(const MIRT_ERRREPORT_S* errRpt, char* name,
                                               char* value) {
  return MIRT_AddParamToErrRptSub(errRpt, name, value);
}

/* The two below collect what follows desc; with a null desc there is nothing that the host library
 * may read. */
__attribute__((format(printf, 6, 7))) MIRT_INLINE int32_t
MIRT_SendErrorInner(uint16_t resType, uint32_t errCode, uint32_t line, const char* funcName,
                    uint8_t rptType, const char* desc, ...) {
  va_list args;
  va_start(args, desc);
  const int32_t sent = MIRT_SendErrorSub(resType, errCode, line, funcName, rptType, desc, &args);
  va_end(args);
  return sent;
}

__attribute__((format(printf, 2, 3))) MIRT_INLINE int32_t
MIRT_SendErrReportInner(const MIRT_ERRREPORT_S* errRpt, const char* desc, ...) {
  va_list args;
  va_start(args, desc);
  const int32_t sent = MIRT_SendErrReportSub(errRpt, desc, &args);
  va_end(args);
  return sent;
}

#endif
