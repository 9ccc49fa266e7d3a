// Certificates for programs.
#include "certificatejson.h"

#include "text.h"

namespace updater {

Json toJson(const asn1::Certificate& cert) {
    return {{"subject", toUtf8(subjectText(cert))},
            {"issuer", toUtf8(issuerText(cert))},
            {"serialNumber", toUtf8(serialNumberText(cert))},
            {"notBefore", toUtf8(notBeforeText(cert))},
            {"notAfter", toUtf8(notAfterText(cert))}};
}

} // namespace updater
