// The method table and the parameter-check table of the Files API, and the
// check functions they name. Every row has its own function; all of them
// accept everything except the three of "convert_office".
#include "module-entry.h"

namespace {

constexpr const char kApi[] = "ZEMO.ZemoraOrvel.Files";

// A check that reads nothing and lets the request through. Instantiated
// once per row (version V, method position M) so each row has its own.
template <unsigned V, unsigned M>
int AcceptRequest(ZEMO::APIRequest*, ZEMO::APIResponse*) {
  return 1;
}

template <unsigned V>
int CheckConvertOffice(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  return ConvertOfficeParamCheck(request, response);
}

#define ORVEL_METHOD_ROW(V, NAME) \
  { kApi, V, NAME, Process }

#define ORVEL_METHOD_ROWS(V)                                                                      \
  ORVEL_METHOD_ROW(V, "list"), ORVEL_METHOD_ROW(V, "shared_with_me"),                             \
      ORVEL_METHOD_ROW(V, "shared_with_others"), ORVEL_METHOD_ROW(V, "get"),                      \
      ORVEL_METHOD_ROW(V, "update"), ORVEL_METHOD_ROW(V, "download"),                             \
      ORVEL_METHOD_ROW(V, "create"), ORVEL_METHOD_ROW(V, "convert_office"),                       \
      ORVEL_METHOD_ROW(V, "upload"), ORVEL_METHOD_ROW(V, "upload_from_tpx"),                      \
      ORVEL_METHOD_ROW(V, "delete"), ORVEL_METHOD_ROW(V, "copy"), ORVEL_METHOD_ROW(V, "move"),    \
      ORVEL_METHOD_ROW(V, "search"), ORVEL_METHOD_ROW(V, "recent"), ORVEL_METHOD_ROW(V, "label"), \
      ORVEL_METHOD_ROW(V, "star"), ORVEL_METHOD_ROW(V, "list_labelled"),                          \
      ORVEL_METHOD_ROW(V, "list_starred"), ORVEL_METHOD_ROW(V, "request_access"),                 \
      ORVEL_METHOD_ROW(V, "get_thumbnail"), ORVEL_METHOD_ROW(V, "list_ancestor")

#define ORVEL_CHECK_ROW(V, M, NAME) \
  { kApi, V, NAME, AcceptRequest<V, M>, 0, 0 }

#define ORVEL_CHECK_ROWS(V)                                                                \
  ORVEL_CHECK_ROW(V, 1, "request_access"), ORVEL_CHECK_ROW(V, 2, "move"),                  \
      ORVEL_CHECK_ROW(V, 3, "list_ancestor"), ORVEL_CHECK_ROW(V, 4, "shared_with_others"), \
      ORVEL_CHECK_ROW(V, 5, "download"), ORVEL_CHECK_ROW(V, 6, "create"),                  \
      ORVEL_CHECK_ROW(V, 7, "label"), ORVEL_CHECK_ROW(V, 8, "get_thumbnail"),              \
      ORVEL_CHECK_ROW(V, 9, "upload_from_tpx"), ORVEL_CHECK_ROW(V, 10, "star"),            \
      ORVEL_CHECK_ROW(V, 11, "get"), ORVEL_CHECK_ROW(V, 12, "update"),                     \
      ORVEL_CHECK_ROW(V, 13, "copy"), ORVEL_CHECK_ROW(V, 14, "recent"),                    \
      ORVEL_CHECK_ROW(V, 15, "search"), ORVEL_CHECK_ROW(V, 16, "list_labelled"),           \
      ORVEL_CHECK_ROW(V, 17, "list"), ORVEL_CHECK_ROW(V, 18, "upload"),                    \
      ORVEL_CHECK_ROW(V, 19, "shared_with_me"), ORVEL_CHECK_ROW(V, 20, "list_starred"),    \
      {kApi, V, "convert_office", CheckConvertOffice<V>, 0, 0}, ORVEL_CHECK_ROW(V, 22, "delete")

}  // namespace

extern "C" {

// clang-format off
ZemoAPIEntry gTable[] = {
    ORVEL_METHOD_ROWS(1),
    ORVEL_METHOD_ROWS(2),
    ORVEL_METHOD_ROWS(3),
    ORVEL_METHOD_ROW(3, "list_backup_tasks"),
    {nullptr, 0, nullptr, nullptr},
};

ZemoAPICheckEntry gCheckTable[] = {
    ORVEL_CHECK_ROW(3, 0, "list_backup_tasks"),
    ORVEL_CHECK_ROWS(3),
    ORVEL_CHECK_ROWS(2),
    ORVEL_CHECK_ROWS(1),
    {nullptr, 0, nullptr, nullptr, 0, 0},
};
// clang-format on

ZemoAPIEntry* GetAPITable() { return gTable; }

ZemoAPICheckEntry* GetAPICheckTable() { return gCheckTable; }

}  // extern "C"
