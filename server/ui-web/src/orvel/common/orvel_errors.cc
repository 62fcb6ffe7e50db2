// Mapping of sync-service result codes to the Files API's error codes. The
// table is the API's public error vocabulary: codes not listed (gaps
// included) become the generic 1000, platform codes 0xE000..0xEFFF pass
// through unchanged. Pure function; reentrant.
#include "orvel_utils.h"

int OrvelErrCodeGetFromBackend(int backend_code) {
  switch (backend_code) {
    case 0:
      return 0;
    case -402:
      return 1006;
    case -403:
      return 1007;
    case -502:
    case -503:
    case -505:
    case -506:
    case -507:
      return 1002;
    case -508:
      return 1003;
    case -601:
    case -602:
      return 1031;
    case -703:
      return 1027;
    case -705:
    case -712:
      return 1002;
    case -800:
      return 1016;
    case -801:
      return 1014;
    case -803:
      return 1017;
    case -804:
      return 1025;
    case -901:
      return 1012;
    case -902:
      return 1013;
    case -903:
      return 1026;
    case -905:
      return 1030;
    case -906:
      return 1039;
    case -1101:
      return 1022;
    case -1102:
      return 1023;
    case -1103:
      return 1024;
    case -1104:
      return 1009;
    case -1105:
      return 1010;
    case -1106:
      return 1004;
    case -1109:
      return 1028;
    case -1110:
      return 1029;
    case -1111:
      return 1032;
    case -1112:
      return 1033;
    case -1113:
      return 1034;
    case -1114:
      return 1035;
    case -1115:
      return 1036;
    case -1116:
      return 1037;
    case -1117:
      return 1038;
    case -1119:  // a password link without its grant: a visitor meets it in any method
      return 1041;
    default:
      break;
  }
  if (backend_code >= 0xE000 && backend_code <= 0xEFFF) return backend_code;
  return 1000;
}
