// Texts of the statuses the library returns. Its own codes have their texts
// here, beside the codes; every other status is a platform call's, passed up
// unchanged, and keeps the platform's text. Reads no release, writes no log
// and touches no store, so it can be called at any time.
#include "wayshunt_cnv.h"

namespace {

struct OwnText {
  retcode_t rc;
  const char *text;
};

constexpr OwnText kOwnTexts[] = {
    {WAYSHUNT_CNV_ERR_VERSION, "wayshunt conversion: no release version (descriptor unset, missing or unparsable)"},
    {WAYSHUNT_CNV_HUB_BIND_FAILED, "wayshunt conversion: no hub queue could be bound for the decommission request"},
};

}  // namespace

extern "C" const char *wayshunt_cnv_strerror(retcode_t rc) {
  for (const OwnText &t : kOwnTexts)
    if (t.rc == rc) return t.text;
  // retcode2str never gives null; a platform library that did must not
  // make this call give null.
  const char *text = retcode2str(rc);
  return text != nullptr ? text : "wayshunt conversion: status without a text";
}
