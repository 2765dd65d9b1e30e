// Signatures as an attacker would make them, and certificates under names that are not theirs.

#include "CodeSignature/CmsSignature.h"

#include "CodeSignature/CertificateChain.h"
#include "CodeSignature/CodeSignatureError.h"
#include "SigningSupport/TestIdentity.h"
#include "TestBundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <string>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const Bytes content{'l', 'i', 's', 't', '\r', '\n', 0, 255};

Bytes derOf(CMS_ContentInfo* cms) {
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &der);
    Bytes bytes(der, der + length);
    OPENSSL_free(der);
    return bytes;
}

OpenSsl::Cms parsed(const Bytes& der) {
    const unsigned char* at = der.data();
    return OpenSsl::Cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size())));
}

/// Signs with the bare library, since our own code would refuse to.
class Forge {
public:
    explicit Forge(unsigned flags = CMS_BINARY | CMS_DETACHED) : flags(flags | CMS_PARTIAL) {
        cms.reset(CMS_sign(nullptr, nullptr, nullptr, nullptr, this->flags));
    }
    Forge& signer(X509* certificate, EVP_PKEY* key, const EVP_MD* digest = EVP_sha256()) {
        EXPECT_NE(CMS_add1_signer(cms.get(), certificate, key, digest, flags), nullptr);
        return *this;
    }
    Forge& add(X509* certificate) {
        EXPECT_EQ(CMS_add1_cert(cms.get(), certificate), 1);
        return *this;
    }
    Forge& addFrom(const TestChain& chain, std::size_t first = 1) {
        for (std::size_t i = first; i < chain.certificates.size(); ++i) add(chain.certificates[i].get());
        return *this;
    }
    Bytes over(const Bytes& bytes) {
        const OpenSsl::Stream stream(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
        EXPECT_EQ(CMS_final(cms.get(), stream.get(), nullptr, flags), 1);
        return derOf(cms.get());
    }

    OpenSsl::Cms cms;

private:
    unsigned flags;
};

std::string refusalOf(const Bytes& signature, const Bytes& over = content) {
    try {
        static_cast<void>(CmsSignature::verify(over, signature));
    } catch (const CodeSignatureError& error) {
        EXPECT_EQ(error.code, CodeSignatureErrorCode::badSignature);
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
        return error.what();
    }
    return "accepted";
}

Bytes signedBy(const TestChain& chain) {
    return Forge().signer(chain.leaf(), chain.key()).addFrom(chain).over(content);
}

/// The verdict on a signature whose chain was made from these requests.
std::string verdictOn(const std::vector<CertificateRequest>& requests) {
    return refusalOf(signedBy(chainOf(requests)));
}

std::vector<std::string> textsOf(const Signer& signer) {
    std::vector<std::string> texts;
    for (const Authority& authority : signer.chain) texts.push_back(authority.text());
    return texts;
}

}  // namespace

TEST(CmsSignatureTest, ASignatureNamesItsTeamAndItsChainInOrder) {
    const TestChain chain = usualChain();
    const Signer signer = CmsSignature::verify(content, signedBy(chain));
    EXPECT_EQ(signer.teamIdentifier, "EXAMPLE01");
    EXPECT_EQ(textsOf(signer), chain.authorities());
}

TEST(CmsSignatureTest, EveryAlteredByteIsRefused) {
    const Bytes signature = signedBy(usualChain());
    for (std::size_t place = 0; place < signature.size(); ++place) {
        Bytes altered = signature;
        altered[place] ^= static_cast<std::uint8_t>(1 << (place % 8));
        EXPECT_NE(refusalOf(altered), "accepted") << "byte " << place << " of " << signature.size();
    }
}

TEST(CmsSignatureTest, EveryAlteredByteOfTheContentIsRefused) {
    const Bytes signature = signedBy(usualChain());
    for (std::size_t place = 0; place < content.size(); ++place) {
        Bytes altered = content;
        altered[place] ^= 1;
        EXPECT_EQ(refusalOf(signature, altered), "the signature is not one over this seal");
    }
    // Whoever takes the contents for text on the way may change the end of a line like this.
    EXPECT_EQ(refusalOf(signature, {'l', 'i', 's', 't', '\n', 0, 255}), "the signature is not one over this seal");
    EXPECT_EQ(refusalOf(signature, {}), "the signature is not one over this seal");
}

TEST(CmsSignatureTest, ASignatureCutShortAnywhereIsRefused) {
    const Bytes signature = signedBy(usualChain());
    for (std::size_t length = 0; length < signature.size(); ++length)
        EXPECT_NE(refusalOf(Bytes(signature.begin(), signature.begin() + static_cast<long>(length))), "accepted");
}

TEST(CmsSignatureTest, BytesBehindASignatureAreRefused) {
    Bytes signature = signedBy(usualChain());
    signature.push_back(0);
    EXPECT_EQ(refusalOf(signature), "the signature is not in DER");
}

TEST(CmsSignatureTest, ASignerNamedByTheKeysIdentifierIsRefused) {
    auto chain = usualChain();
    X509_EXTENSION* identifier = X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_key_identifier, "01:02:03");
    X509_add_ext(chain.leaf(), identifier, -1);
    X509_EXTENSION_free(identifier);
    X509_sign(chain.leaf(), chain.keys[1].get(), EVP_sha256());
    EXPECT_EQ(refusalOf(Forge(CMS_BINARY | CMS_DETACHED | CMS_USE_KEYID)
                            .signer(chain.leaf(), chain.key())
                            .addFrom(chain)
                            .over(content)),
              "the signature is of another version");
}

TEST(CmsSignatureTest, AnRsaKeySignsToo) {
    const OpenSsl::Key key = rsaKey(3072);
    const auto lone = certificate({"Lone", "T"}, key.get(), nullptr, key.get());
    const Bytes signature = Forge().signer(lone.get(), key.get()).over(content);
    EXPECT_EQ(refusalOf(signature), "accepted");
    for (std::size_t place = 0; place < signature.size(); ++place) {
        Bytes altered = signature;
        altered[place] ^= static_cast<std::uint8_t>(1 << (place % 8));
        EXPECT_NE(refusalOf(altered), "accepted") << "byte " << place << " of " << signature.size();
    }
}

TEST(CmsSignatureTest, ASignatureInAnotherSpellingIsRefused) {
    // The outermost length in one byte more than it needs.
    Bytes signature = signedBy(usualChain());
    ASSERT_EQ(signature[1], 0x82);
    signature[1] = 0x83;
    signature.insert(signature.begin() + 2, 0);
    EXPECT_THAT(refusalOf(signature), testing::AnyOf("the signature is not in DER", "the signature can't be read"));
}

TEST(CmsSignatureTest, AHugeSignatureIsRefusedUnread) {
    EXPECT_EQ(refusalOf(Bytes(CmsSignature::maximumBytes + 1, 0x30)), "the signature is larger than 64 KiB");
    EXPECT_EQ(refusalOf(Bytes(CmsSignature::maximumBytes, 0x30)), "the signature can't be read");
    EXPECT_EQ(refusalOf({0x30, 0x84, 0x7f, 0xff, 0xff, 0xff}), "the signature can't be read") << "claims 2 GiB";
}

TEST(CmsSignatureTest, TwoSignersAreOneTooMany) {
    const TestChain chain = usualChain();
    const TestChain other = usualChain();
    EXPECT_EQ(refusalOf(Forge()
                            .signer(chain.leaf(), chain.key())
                            .signer(other.leaf(), other.key())
                            .addFrom(chain)
                            .addFrom(other)
                            .over(content)),
              "the signature has 2 signers, and needs exactly one");
    Forge twice;
    twice.signer(chain.leaf(), chain.key()).addFrom(chain);
    ASSERT_NE(CMS_add1_signer(twice.cms.get(), chain.leaf(), chain.key(), EVP_sha384(),
                              CMS_BINARY | CMS_PARTIAL | CMS_NOCERTS),
              nullptr);
    EXPECT_EQ(refusalOf(twice.over(content)), "the signature has 2 signers, and needs exactly one");
}

TEST(CmsSignatureTest, NoSignerIsNotEnough) {
    EXPECT_EQ(refusalOf(derOf(Forge().addFrom(usualChain(), 0).cms.get())),
              "the signature has 0 signers, and needs exactly one");
}

TEST(CmsSignatureTest, ASignatureThatBringsItsOwnContentIsRefused) {
    const TestChain chain = usualChain();
    EXPECT_THAT(refusalOf(Forge(CMS_BINARY).signer(chain.leaf(), chain.key()).addFrom(chain).over(content)),
                HasSubstr("of another kind"));
}

TEST(CmsSignatureTest, OtherKindsOfCmsAreRefused) {
    const OpenSsl::Stream stream(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    const OpenSsl::Cms digest(CMS_digest_create(stream.get(), EVP_sha256(), CMS_BINARY));
    EXPECT_THAT(refusalOf(derOf(digest.get())), HasSubstr("of another kind"));
    const TestChain chain = usualChain();
    Forge forge;
    forge.signer(chain.leaf(), chain.key()).addFrom(chain);
    CMS_set1_eContentType(forge.cms.get(), OBJ_nid2obj(NID_id_smime_ct_TSTInfo));
    EXPECT_THAT(refusalOf(forge.over(content)), HasSubstr("of another kind"));
}

TEST(CmsSignatureTest, WithoutSignedAttributesOrWithUnsignedOnesItIsRefused) {
    const TestChain chain = usualChain();
    EXPECT_EQ(refusalOf(Forge(CMS_BINARY | CMS_DETACHED | CMS_NOATTR)
                            .signer(chain.leaf(), chain.key())
                            .addFrom(chain)
                            .over(content)),
              "the signature has no signed attributes");
    const OpenSsl::Cms cms = parsed(signedBy(chain));
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.get()), 0);
    ASSERT_EQ(CMS_unsigned_add1_attr_by_NID(signer, NID_friendlyName, V_ASN1_UTF8STRING, "x", 1), 1);
    EXPECT_EQ(refusalOf(derOf(cms.get())), "the signature has attributes that are not signed");
}

TEST(CmsSignatureTest, WeakDigestsAreRefused) {
    const TestChain chain = usualChain();
    EXPECT_EQ(refusalOf(Forge().signer(chain.leaf(), chain.key(), EVP_sha1()).addFrom(chain).over(content)),
              "the signature uses a digest that is too weak");
    EXPECT_EQ(refusalOf(Forge().signer(chain.leaf(), chain.key(), EVP_sha384()).addFrom(chain).over(content)),
              "accepted");
    for (std::size_t i = 0; i < 3; ++i) {
        auto requests = usualRequests();
        requests[i].digest = EVP_sha1();
        EXPECT_EQ(verdictOn(requests),
                  "the certificate \"" + requests[i].commonName + "\" is signed with an algorithm that is too weak");
    }
}

TEST(CmsSignatureTest, WeakKeysAreRefused) {
    const TestChain chain = usualChain();
    const auto with = [&](const OpenSsl::Key& key) {
        const auto leaf = certificate(usualRequests()[0], key.get(), chain.certificates[1].get(), chain.keys[1].get());
        return refusalOf(Forge().signer(leaf.get(), key.get()).addFrom(chain).over(content));
    };
    EXPECT_EQ(with(rsaKey(1024)), "the certificate \"Example Releases\" has a key that is too weak");
    EXPECT_EQ(with(ecKey("P-192")), "the certificate \"Example Releases\" has a key that is too weak");
    EXPECT_EQ(with(rsaKey(2048)), "accepted");
    EXPECT_EQ(with(ecKey("P-384")), "accepted");
}

TEST(CmsSignatureTest, DatesAreNotJudged) {
    auto requests = usualRequests();
    for (CertificateRequest& request : requests) {
        request.validFrom = -20L * 365 * 86400;
        request.validUntil = -10L * 365 * 86400;
    }
    EXPECT_EQ(verdictOn(requests), "accepted");
    for (CertificateRequest& request : requests) {
        request.validFrom = 86400;
        request.validUntil = 2 * 86400;
    }
    EXPECT_EQ(verdictOn(requests), "accepted");
}

TEST(CmsSignatureTest, AChainOfOneThatMaySignProgramsIsAccepted) {
    const TestChain chain = chainOf({{"Lone", ""}});
    const Signer signer = CmsSignature::verify(content, signedBy(chain));
    EXPECT_EQ(textsOf(signer), chain.authorities());
    EXPECT_EQ(signer.teamIdentifier, std::nullopt);
}

TEST(CmsSignatureTest, ALeafByAStrangersIntermediateOfTheSameNameIsRefused) {
    const TestChain real = usualChain();
    const TestChain stranger = usualChain();
    // The stranger's leaf, put under the real authorities: all names fit.
    EXPECT_EQ(refusalOf(Forge().signer(stranger.leaf(), stranger.key()).addFrom(real).over(content)),
              "the certificate \"Example Releases\" is not signed by the next one of the chain");
    // The stranger's intermediate, under the real root.
    EXPECT_EQ(refusalOf(Forge()
                            .signer(stranger.leaf(), stranger.key())
                            .add(stranger.certificates[1].get())
                            .add(real.certificates[2].get())
                            .over(content)),
              "the certificate \"Example Intermediate\" is not signed by the next one of the chain");
    // Both intermediates: whichever is taken, one is left over or nothing fits.
    EXPECT_NE(refusalOf(Forge()
                            .signer(stranger.leaf(), stranger.key())
                            .add(stranger.certificates[1].get())
                            .addFrom(real)
                            .over(content)),
              "accepted");
}

TEST(CmsSignatureTest, TheSameNamesOnOtherKeysMakeAnotherChain) {
    const TestChain real = usualChain();
    const TestChain stranger = usualChain();
    const Signer a = CmsSignature::verify(content, signedBy(real));
    const Signer b = CmsSignature::verify(content, signedBy(stranger));
    ASSERT_EQ(a.chain.size(), b.chain.size());
    for (std::size_t i = 0; i < a.chain.size(); ++i) {
        EXPECT_EQ(a.chain[i].name, b.chain[i].name);
        EXPECT_NE(a.chain[i].text(), b.chain[i].text());
    }
}

TEST(CmsSignatureTest, TheSignerIsWhoseKeySignedNotWhoIsListed) {
    // The real certificate beside another one's signature.
    const TestChain real = usualChain();
    const TestChain stranger = usualChain();
    EXPECT_NE(refusalOf(Forge().signer(stranger.leaf(), stranger.key()).addFrom(real, 0).over(content)), "accepted");
    // The stranger's signature, over a copy of the real certificate's number and issuer.
    const OpenSsl::Cms cms = parsed(Forge().signer(stranger.leaf(), stranger.key()).addFrom(stranger).over(content));
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.get()), 0);
    ASN1_OCTET_STRING* keyIdentifier = nullptr;
    X509_NAME* issuer = nullptr;
    ASN1_INTEGER* number = nullptr;
    ASSERT_EQ(CMS_SignerInfo_get0_signer_id(signer, &keyIdentifier, &issuer, &number), 1);
    ASN1_INTEGER_set(number, ASN1_INTEGER_get(X509_get0_serialNumber(real.leaf())));
    for (const auto& certificate : real.certificates) CMS_add1_cert(cms.get(), certificate.get());
    EXPECT_EQ(refusalOf(derOf(cms.get())), "the signature is not one over this seal");
}

TEST(CmsSignatureTest, CertificatesToSpareAreRefused) {
    const TestChain chain = usualChain();
    const TestChain other = usualChain();
    const auto with = [&](X509* extra) {
        return refusalOf(Forge().signer(chain.leaf(), chain.key()).addFrom(chain).add(extra).over(content));
    };
    EXPECT_EQ(with(other.leaf()), "the signature holds certificates that do not belong to the chain");
    EXPECT_EQ(with(other.certificates[2].get()), "the certificate \"Example Root\" does not belong to the chain");
    EXPECT_EQ(refusalOf(Forge().signer(chain.leaf(), chain.key()).add(chain.certificates[1].get()).over(content)),
              "the chain of certificates does not end in one that is signed by itself");
    EXPECT_THAT(refusalOf(Forge().signer(chain.leaf(), chain.key()).add(chain.certificates[2].get()).over(content)),
                HasSubstr("\"Example Releases\" is not signed by the next one of the chain"));
}

TEST(CmsSignatureTest, ARootThatOnlyClaimsToHaveSignedItselfIsRefused) {
    const TestChain chain = usualChain();
    const OpenSsl::Key stranger = ecKey();
    // The root has its own key and names itself as its issuer, but the stranger has signed it.
    const auto root = certificate(usualRequests()[2], chain.keys[2].get(), nullptr, stranger.get());
    EXPECT_EQ(
        refusalOf(
            Forge().signer(chain.leaf(), chain.key()).add(chain.certificates[1].get()).add(root.get()).over(content)),
        "the certificate \"Example Root\" is not signed by the next one of the chain");
}

TEST(CmsSignatureTest, WhoSignsCertificatesHasToBeAnAuthority) {
    auto requests = usualRequests();
    requests[1].isAuthority = false;
    requests[1].keyUsage = "critical,keyCertSign,digitalSignature";
    EXPECT_NE(verdictOn(requests), "accepted") << "a leaf that signs leaves";
    requests = usualRequests();
    requests[1].keyUsage = "critical,digitalSignature";
    EXPECT_NE(verdictOn(requests), "accepted");
    requests = usualRequests();
    requests[2].pathLength = 0;
    EXPECT_NE(verdictOn(requests), "accepted") << "the root allows no intermediate";
    requests = usualRequests();
    requests[2].isVersion1 = true;
    EXPECT_EQ(verdictOn(requests), "the certificate \"Example Root\" is not that of a certificate authority");
    requests = usualRequests();
    requests[1].keyUsage = "";
    EXPECT_EQ(verdictOn(requests), "accepted") << "a key usage need not be there";
}

TEST(CmsSignatureTest, WhoSignsProgramsHasToBeMeantToDoSo) {
    auto requests = usualRequests();
    const auto with = [&](std::string usage, std::string purpose) {
        requests[0].keyUsage = std::move(usage);
        requests[0].extendedKeyUsage = std::move(purpose);
        return verdictOn(requests);
    };
    const std::string noCodeSigning = "the certificate \"Example Releases\" has no extended key usage code signing";
    EXPECT_EQ(with("digitalSignature", "codeSigning"), "accepted");
    EXPECT_EQ(with("", "critical,codeSigning,emailProtection"), "accepted");
    EXPECT_EQ(with("digitalSignature", ""), noCodeSigning);
    EXPECT_EQ(with("digitalSignature", "serverAuth"), noCodeSigning);
    EXPECT_EQ(with("digitalSignature", "anyExtendedKeyUsage"), noCodeSigning);
    EXPECT_EQ(with("keyEncipherment", "codeSigning"),
              "the certificate \"Example Releases\" has a key usage without digital signature");
}

TEST(CmsSignatureTest, MoreThanEightCertificatesAreRefused) {
    std::vector<CertificateRequest> requests{{"Leaf", "T"}};
    for (int i = 1; i < 8; ++i) requests.push_back({"Authority " + std::to_string(i), "", true});
    EXPECT_EQ(verdictOn(requests), "accepted");
    requests.push_back({"Root", "", true});
    EXPECT_EQ(verdictOn(requests), "the signature holds more than 8 certificates");
}

TEST(CmsSignatureTest, NamesMakeNoLinesOfTheirOwn) {
    auto requests = usualRequests();
    requests[0].commonName = "x\nAuthority=Example Root\nSignature=adhoc";
    requests[0].unit = "EVIL\nTeamIdentifier=EXAMPLE01";
    requests[1].commonName =
        "\xe2\x80\xae"
        "evil\\";
    const TestBundle bundle;
    bundle.signAs(chainOf(requests));
    const ProgramRun run = bundle.display();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_FALSE(run.hasLine("Signature=adhoc"));
    EXPECT_THAT(run.values("TeamIdentifier="), ElementsAre("EVIL\\x0aTeamIdentifier=EXAMPLE01"));
    EXPECT_THAT(run.values("Authority="),
                ElementsAre(testing::StartsWith("x\\x0aAuthority=Example Root\\x0aSignature=adhoc (sha256 "),
                            testing::StartsWith("\\xe2\\x80\\xaeevil\\x5c (sha256 "),
                            testing::StartsWith("Example Root (sha256 ")));
}

TEST(CmsSignatureTest, WithoutACommonNameTheWholeSubjectNamesACertificate) {
    auto requests = usualRequests();
    requests[0].commonName = "";
    EXPECT_EQ(CmsSignature::verify(content, signedBy(chainOf(requests))).chain[0].name, "OU=EXAMPLE01,O=Example");
}

TEST(CmsSignatureTest, TheTeamIsTheOneUnitOrNone) {
    auto requests = usualRequests();
    requests[0].unit = "";
    EXPECT_EQ(CmsSignature::verify(content, signedBy(chainOf(requests))).teamIdentifier, std::nullopt);
    const TestBundle bundle;
    bundle.signAs(chainOf(requests));
    EXPECT_TRUE(bundle.display().hasLine("TeamIdentifier=not set"));
    requests[0].unit = "ONE";
    requests[0].moreUnits = {"TWO"};
    EXPECT_EQ(verdictOn(requests),
              "the certificate \"Example Releases\" has several organisational units, and needs one");
}

TEST(CmsSignatureTest, ANameThatIsTooLongIsRefused) {
    auto requests = usualRequests();
    const TestChain chain = usualChain();
    // The library does not make names longer than the standard allows unless it is told to, but it reads them.
    const OpenSsl::Certificate leaf(X509_dup(chain.leaf()));
    const std::string name(600, 'n');
    ASN1_STRING_TABLE_add(NID_organizationalUnitName, 1, 1000, B_ASN1_UTF8STRING, STABLE_NO_MASK);
    const bool isAdded =
        X509_NAME_add_entry_by_txt(X509_get_subject_name(leaf.get()), "description", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(name.data()), 600, -1, 0) == 1;
    ASN1_STRING_TABLE_cleanup();
    ASSERT_TRUE(isAdded);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(leaf.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("second"), -1, -1, 0);
    X509_sign(leaf.get(), chain.keys[1].get(), EVP_sha256());
    EXPECT_EQ(refusalOf(Forge().signer(leaf.get(), chain.key()).addFrom(chain).over(content)),
              "a certificate has a name longer than 512 bytes");
}

TEST(CmsSignatureTest, AnIdentityThatNobodyWouldAcceptDoesNotSign) {
    auto requests = usualRequests();
    requests[0].extendedKeyUsage = "serverAuth";
    const TestBundle bundle;
    const ProgramRun run = bundle.sign(chainOf(requests).pem());
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors,
              "vimble-codesign: the certificate \"Example Releases\" has no extended key usage code signing\n");
    EXPECT_FALSE(std::filesystem::exists(bundle.at("Contents/_CodeSignature")));
}
