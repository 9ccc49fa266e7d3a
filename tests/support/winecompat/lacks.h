// What the crypt32 that runs here lacks of what Windows documents.
#pragma once

namespace testsupport {

/// Each is true where crypt32 does otherwise than Windows; all are false on Windows.
struct Lacks {
    /// Property ids from 32768 to 65535 are an application's own and kept with the certificate
    /// (Microsoft, CertSetCertificateContextProperty).
    bool ownProperties = false;
    /// An enumeration goes on after a duplicate of the context at which it stands was deleted
    /// (Microsoft, CertDeleteCertificateFromStore, remarks).
    bool deletionWhileEnumerating = false;
    /// Changes of a system store are in the registry at once, whoever holds a context, and a handle
    /// that was opened earlier undoes nobody else's. This is expected of Windows; no page of
    /// Microsoft's that is known here says it plainly.
    bool writingAtOnce = false;
    /// CERT_FIND_EXISTING finds an exact match only (Microsoft, CertFindCertificateInStore).
    bool exactMatch = false;
};

/// Asked once in each process of crypt32 itself, with a memory store and a system store that nobody
/// else uses and that is gone afterwards.
const Lacks& lacks();

} // namespace testsupport
