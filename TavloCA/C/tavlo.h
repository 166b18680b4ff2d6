#ifndef TAVLO_H
#define TAVLO_H

/// @file
/// TavloCA for programs in C (C99), and for languages that bind C.
///
/// - A function that gives a handle back gives it to its caller, who ends with it through the `tavlo_..._free` of its
///   kind; that takes NULL, too. What a function or a callback is given stays its giver's, and is valid during the call
///   alone: what is needed longer is copied.
/// - Any function may be called from any thread, several at once. A model, an image, bytes and an error may be read by
///   several threads at once; a model must not be added to meanwhile, and a document is used by one thread at a time.
/// - No C++ exception leaves a function. A callback must not throw or jump out of its call either.
/// - Where a parameter `error` is not NULL, it is set to NULL, or to the error when the function fails and gives NULL
///   or false.
/// - A text is UTF-8 and ends with a NUL byte. Bytes are a pointer, which may be NULL where the length is 0, and their
///   number, at most TAVLO_MAXIMUM_LENGTH. An argument that is NULL and must not be, or beyond a limit, is an error of
///   kind TAVLO_ERROR_ARGUMENT.
///
/// Whoever installs something of the host (a session, a key source, a device, a folder, a print handler) does it once,
/// before the first other call. It stays in force, and `context` in use, until it is replaced and no call is under way.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/// Marks what the library shows; defined beforehand, it is left as it is.
#ifndef TAVLO_API
#ifdef __GNUC__
#define TAVLO_API __attribute__((visibility("default")))
#else
#define TAVLO_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(readability-identifier-naming,modernize-use-using): this is C

/// The most bytes that a function takes at once: 256 MiB.
#define TAVLO_MAXIMUM_LENGTH ((size_t)268435456)
/// The longest public key, in bytes, that a key source may give.
#define TAVLO_MAXIMUM_KEY_LENGTH ((size_t)1024)

/// The library's version, such as "0.1.0". Never freed.
TAVLO_API const char *tavlo_version(void);

// ---- Errors ---------------------------------------------------------------------------------------------------------

/// Why a function failed, or a request got no answer.
typedef struct tavlo_error tavlo_error;

/// Where an error comes from.
typedef enum tavlo_error_kind {
  TAVLO_ERROR_OTHER = 0,     ///< something else, such as a host's own C++ service
  TAVLO_ERROR_ARGUMENT = 1,  ///< an argument is missing or beyond a limit: a mistake of the caller's
  TAVLO_ERROR_REQUEST = 2,   ///< the library itself: no key pair, no request, or a URL that is none
  TAVLO_ERROR_NETWORK = 3,   ///< the network layer; the code is a tavlo_network_code
  TAVLO_ERROR_DOCUMENT = 4,  ///< bytes that are no sound file of an electronic document
  TAVLO_ERROR_IMAGE = 5,     ///< bytes that are no picture, or one beyond the limits
  TAVLO_ERROR_KEY = 6,       ///< a key that is none, or that cannot be made or kept
  TAVLO_ERROR_JSON = 7,      ///< JSON that is none or of another shape, or a record that has no JSON
  TAVLO_ERROR_SYSTEM = 8,    ///< the operating system; the code is that of errno
  TAVLO_ERROR_MEMORY = 9     ///< there is no memory for it
} tavlo_error_kind;

/// The code of an error of kind TAVLO_ERROR_NETWORK. The numbers are those of Apple's URL loading system.
typedef enum tavlo_network_code {
  TAVLO_NETWORK_UNKNOWN = -1,  ///< a failure without a code of its own
  TAVLO_NETWORK_CANCELLED = -999,  ///< the process is ending
  TAVLO_NETWORK_BAD_URL = -1000,  ///< an address without a host, or with a port that is none
  TAVLO_NETWORK_TIMED_OUT = -1001,  ///< nothing moved for as long as the request allows
  TAVLO_NETWORK_UNSUPPORTED_URL = -1002,  ///< a scheme other than http and https
  TAVLO_NETWORK_CANNOT_FIND_HOST = -1003,  ///< no address is known for the name
  TAVLO_NETWORK_CANNOT_CONNECT_TO_HOST = -1004,  ///< nothing answers at that address
  TAVLO_NETWORK_CONNECTION_LOST = -1005,  ///< the connection ended before the answer was whole
  TAVLO_NETWORK_TOO_MANY_REDIRECTS = -1007,  ///< more than 20 redirects
  TAVLO_NETWORK_NOT_CONNECTED_TO_INTERNET = -1009,  ///< there is no network; only from a session of the host's own
  TAVLO_NETWORK_REDIRECT_TO_ANOTHER_SERVER = -1010,  ///< a redirect would have taken the body to another server
  TAVLO_NETWORK_BAD_SERVER_RESPONSE = -1011,  ///< only from a session of the host's own
  TAVLO_NETWORK_CANNOT_PARSE_RESPONSE = -1017,  ///< what came is no HTTP
  TAVLO_NETWORK_REDIRECT_TO_PLAIN_HTTP = -1022,  ///< a redirect would have left HTTPS
  TAVLO_NETWORK_ANSWER_TOO_LONG = -1103,  ///< the answer is too long, or there is no memory for it
  TAVLO_NETWORK_SECURE_CONNECTION_FAILED = -1200,  ///< no TLS 1.2 or later could be agreed on
  TAVLO_NETWORK_CERTIFICATE_UNTRUSTED = -1202  ///< the server's certificate is not trusted, or not its own
} tavlo_network_code;

/// The kind of `error`; TAVLO_ERROR_OTHER for NULL.
TAVLO_API tavlo_error_kind tavlo_error_kind_of(const tavlo_error *error);
/// The code within the kind; 0 where the kind has none.
TAVLO_API int tavlo_error_code(const tavlo_error *error);
/// A sentence in English for a person; valid as long as the error. Empty for NULL.
TAVLO_API const char *tavlo_error_message(const tavlo_error *error);
/// Ends with it; NULL is allowed. What was got from it is not valid any more.
TAVLO_API void tavlo_error_free(tavlo_error *error);

// ---- Bytes ----------------------------------------------------------------------------------------------------------

/// Bytes that the library gives away.
typedef struct tavlo_data tavlo_data;

/// The bytes, valid as long as `data`; they do not end with a NUL byte. NULL for NULL.
TAVLO_API const uint8_t *tavlo_data_bytes(const tavlo_data *data);
/// Their number.
TAVLO_API size_t tavlo_data_length(const tavlo_data *data);
/// Ends with it; NULL is allowed. What was got from it is not valid any more.
TAVLO_API void tavlo_data_free(tavlo_data *data);

// ---- Electronic documents (ICAO Doc 9303-10) ------------------------------------------------------------------------

/// An electronic document as it was read from its chip: a set of data groups.
typedef struct tavlo_model tavlo_model;

/// A document of which nothing has been read yet. NULL only without memory.
TAVLO_API tavlo_model *tavlo_model_create(tavlo_error **error);
/// Adds one elementary file, such as DG1 or the SOD, known by its content. False and unchanged when it is malformed, no
/// data group, longer than 4 MiB, or there already.
TAVLO_API bool tavlo_model_add(tavlo_model *model, const uint8_t *bytes, size_t length, tavlo_error **error);
/// Reads all files of a folder, whatever their names. NULL when a data group is malformed, twice there, or none is: to
/// do without a malformed one, add the files one by one. Files that are no data groups are passed over.
TAVLO_API tavlo_model *tavlo_model_read_folder(const char *folder, tavlo_error **error);
/// Ends with it; NULL is allowed. What was got from it is not valid any more.
TAVLO_API void tavlo_model_free(tavlo_model *model);

// ---- Pictures -------------------------------------------------------------------------------------------------------

/// A picture, such as a selfie. Never changes.
typedef struct tavlo_image tavlo_image;

/// Decodes PNG, JPEG or JPEG 2000. A camera's orientation (Exif) is applied.
TAVLO_API tavlo_image *tavlo_image_decode(const uint8_t *bytes, size_t length, tavlo_error **error);
/// Copies a camera frame: `height` rows of `width` pixels of 3 bytes (RGB) or 4 (RGBA, alpha not premultiplied), as
/// `channels` says, each row beginning `stride` bytes after the one before.
TAVLO_API tavlo_image *tavlo_image_from_pixels(const uint8_t *pixels, size_t length, size_t width, size_t height,
                                               size_t stride, size_t channels, tavlo_error **error);
/// Ends with it; NULL is allowed. What was got from it is not valid any more.
TAVLO_API void tavlo_image_free(tavlo_image *image);

// ---- Document records -----------------------------------------------------------------------------------------------

/// The record of one document that an app keeps and shows: a base record, a passport or a certificate. Its fields are
/// read and changed as JSON, a member for each: documentType, documentNumber, nationality, lastName, firstName,
/// dateOfBirth, gender, documentExpiryDate, portraitFilename, signatureFilename, certificateSigningRequest, children.
typedef struct tavlo_document tavlo_document;

/// Which of a record's pictures is meant.
typedef enum tavlo_picture {
  TAVLO_PORTRAIT = 0,  ///< the holder's face
  TAVLO_SIGNATURE = 1  ///< the holder's usual mark
} tavlo_picture;

/// The record of a passport that was read. Keeps its portrait and signature as files of the app.
TAVLO_API tavlo_document *tavlo_passport_create(const tavlo_model *model, tavlo_error **error);
/// A fictitious passport, to try things out. Keeps its two pictures as new files at each call.
TAVLO_API tavlo_document *tavlo_passport_demo(tavlo_error **error);
/// A certificate that rests on `passport`, which must be a passport. Keeps its picture as a new file at each call.
TAVLO_API tavlo_document *tavlo_certificate_create(const tavlo_document *passport, tavlo_error **error);
/// Reads JSON as a passport. Only a passport can be verified.
TAVLO_API tavlo_document *tavlo_passport_from_json(const uint8_t *json, size_t length, tavlo_error **error);
/// Reads JSON as a base record, which is also what a certificate and a child are read back as.
TAVLO_API tavlo_document *tavlo_document_from_json(const uint8_t *json, size_t length, tavlo_error **error);
/// The record as JSON in UTF-8. It holds personal data.
TAVLO_API tavlo_data *tavlo_document_to_json(const tavlo_document *document, tavlo_error **error);
/// One of the record's pictures as a PNG file. NULL without an error when it has none.
TAVLO_API tavlo_data *tavlo_document_picture(const tavlo_document *document, tavlo_picture picture,
                                             tavlo_error **error);
/// Ends with it; NULL is allowed. What was got from it is not valid any more.
TAVLO_API void tavlo_document_free(tavlo_document *document);

// ---- Requests -------------------------------------------------------------------------------------------------------

/// Takes the outcome of a request, exactly once: the answer's bytes with no error, or NULL, 0 and the error. An answer
/// without content is not NULL.
///
/// Runs on the calling thread before the call returns when a step on this machine fails, otherwise on the session's
/// thread: the library's own calls one completion at a time, and a session of the host's calls it in
/// `tavlo_exchange_answer` or `tavlo_exchange_fail`. Hop to your own thread from there.
typedef void (*tavlo_completion)(void *context, const uint8_t *answer, size_t length, const tavlo_error *error);

/// Sends a document and a selfie to the verification service, and hands over its answer as it came. `passport` is the
/// passport record made of `model`; its document number names the key pair. Builds the request on the calling thread,
/// keys included, and then returns without waiting. Without a completion nothing is done.
TAVLO_API void tavlo_verify(const tavlo_model *model, const tavlo_document *passport, const tavlo_image *selfie,
                            tavlo_completion completion, void *context);

/// The body of a verification request as JSON: what `tavlo_verify` sends, for an app that keeps it and posts the same
/// bytes again after a failure. `public_key` is as `tavlo_key_source` gives it.
TAVLO_API tavlo_data *tavlo_build(const tavlo_model *model, const tavlo_image *selfie, const uint8_t *public_key,
                                  size_t length, tavlo_error **error);

/// The public half of the key pair kept under a document number, which is made if there is none. NULL for the empty
/// number: documents whose number was not read must not share a key.
TAVLO_API tavlo_data *tavlo_public_key(const char *document_number, tavlo_error **error);
/// The same under the number that the document's own DG1 has; NULL where that was not read.
TAVLO_API tavlo_data *tavlo_model_public_key(const tavlo_model *model, tavlo_error **error);

/// Posts bytes, which are copied, over HTTP or HTTPS, and hands over the answer's body whatever its status. Nothing is
/// sent twice, and 60 seconds without any movement end the exchange. Without a completion nothing is done.
TAVLO_API void tavlo_post(const uint8_t *bytes, size_t length, const char *url, tavlo_completion completion,
                          void *context);

// ---- Console lines --------------------------------------------------------------------------------------------------

/// Takes one console line, which does not end with a NUL byte. Several threads may call it at once.
typedef void (*tavlo_print_handler)(void *context, const char *line, size_t length);

/// Routes the library's console lines, by default on standard output, to `handler`; NULL brings standard output back.
/// The lines hold personal data, whole requests among them. False only without memory.
TAVLO_API bool tavlo_set_print_handler(tavlo_print_handler handler, void *context, tavlo_error **error);
/// Drops all console lines.
TAVLO_API bool tavlo_silence(tavlo_error **error);

// ---- What a host brings ---------------------------------------------------------------------------------------------

/// Keeps key pairs in `folder`/keys and pictures in `folder`/images, both made when needed and closed to others; by
/// default `folder` is $XDG_DATA_HOME/tavlo, or ~/.local/share/tavlo.
TAVLO_API bool tavlo_set_folder(const char *folder, tavlo_error **error);

/// What requests tell of the device: the system's version, and the model, which may be NULL for unknown. A version of
/// NULL brings the machine's own back.
TAVLO_API bool tavlo_set_device(const char *system_version, const char *model, tavlo_error **error);

/// Gives the public key to verify with, from the host's own key hardware: finds or makes the pair of `document_number`,
/// never empty, writes the public half to `key`, and returns its length, or 0 when there is none. On the curve P-256 it
/// is the point of 65 bytes (ANSI X9.63: 04, x, y). The same number must always give the same key.
typedef size_t (*tavlo_key_source)(void *context, const char *document_number,
                                   uint8_t key[TAVLO_MAXIMUM_KEY_LENGTH]);

/// Asks `source` for keys from now on; NULL brings the files back.
TAVLO_API bool tavlo_set_key_source(tavlo_key_source source, void *context, tavlo_error **error);

/// One POST that waits for its outcome.
typedef struct tavlo_exchange tavlo_exchange;

/// Sends requests in the library's place: a plain POST each, to which no header is added but what HTTP asks for, and
/// which is never sent twice. Returns without waiting; on any thread later, exactly one of `tavlo_exchange_answer` and
/// `tavlo_exchange_fail` ends the exchange. It belongs to the session until then.
typedef void (*tavlo_session)(void *context, tavlo_exchange *exchange);

/// Sends requests through `session` from now on; NULL brings the library's own session back.
TAVLO_API bool tavlo_set_session(tavlo_session session, void *context, tavlo_error **error);

/// Where to post; valid as long as the exchange.
TAVLO_API const char *tavlo_exchange_url(const tavlo_exchange *exchange);
/// What to post, unchanged; valid as long as the exchange.
TAVLO_API const uint8_t *tavlo_exchange_body(const tavlo_exchange *exchange);
/// The number of its bytes.
TAVLO_API size_t tavlo_exchange_body_length(const tavlo_exchange *exchange);
/// After how many seconds without any movement to give up.
TAVLO_API double tavlo_exchange_timeout(const tavlo_exchange *exchange);
/// Ends an exchange with an answer, whatever its HTTP status: copies the body, calls the completion on this thread, and
/// frees the exchange.
TAVLO_API void tavlo_exchange_answer(tavlo_exchange *exchange, int status, const uint8_t *body, size_t length);
/// Ends an exchange without an answer, and frees it.
TAVLO_API void tavlo_exchange_fail(tavlo_exchange *exchange, tavlo_network_code code);

// NOLINTEND(readability-identifier-naming,modernize-use-using)
#ifdef __cplusplus
}
#endif

#endif
