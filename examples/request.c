/* Builds the request for a passport and a selfie in C, and posts it. */

#include <tavlo.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

/* What a completion, which runs on the session's thread, tells the one that waits. */
typedef struct {
  pthread_mutex_t mutex;
  pthread_cond_t ended;
  int status; /* -1 as long as there is no outcome */
} Outcome;

static void complete(void *context, const uint8_t *answer, size_t length, const tavlo_error *error) {
  Outcome *outcome = context;
  if (error != NULL) {
    fprintf(stderr, "%s (kind %d, code %d)\n", tavlo_error_message(error), (int)tavlo_error_kind_of(error),
            tavlo_error_code(error));
  } else {
    fwrite(answer, 1, length, stdout);
    putchar('\n');
  }
  pthread_mutex_lock(&outcome->mutex);
  outcome->status = error != NULL ? 1 : 0;
  pthread_cond_signal(&outcome->ended);
  pthread_mutex_unlock(&outcome->mutex);
}

/* Posts the bytes and waits for the outcome; an app with a loop would not wait but hop onto it. */
static int postAndWait(const tavlo_data *body, const char *url) {
  Outcome outcome = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, -1};
  tavlo_post(tavlo_data_bytes(body), tavlo_data_length(body), url, complete, &outcome);
  pthread_mutex_lock(&outcome.mutex);
  while (outcome.status < 0) pthread_cond_wait(&outcome.ended, &outcome.mutex);
  pthread_mutex_unlock(&outcome.mutex);
  return outcome.status;
}

/* Reads a file of at most 16 MiB. */
static uint8_t *readFile(const char *path, size_t *length) {
  const size_t limit = (size_t)16 << 20;
  FILE *file = fopen(path, "rb");
  uint8_t *bytes = file != NULL ? malloc(limit) : NULL;
  *length = bytes != NULL ? fread(bytes, 1, limit, file) : 0;
  if (file != NULL) fclose(file);
  return bytes;
}

int main(int argc, char **argv) {
  if (argc != 5) {
    fprintf(stderr, "use: example-request FOLDER DOCUMENT-NUMBER SELFIE URL\n");
    return 2;
  }
  /* The first failure ends the chain. */
  tavlo_error *error = NULL;
  tavlo_model *model = NULL;
  tavlo_image *selfie = NULL;
  tavlo_data *key = NULL, *body = NULL;
  size_t length = 0;
  uint8_t *picture = readFile(argv[3], &length);
  int status = 1;

  tavlo_silence(NULL); /* The library's console lines hold personal data. */
  if ((model = tavlo_model_read_folder(argv[1], &error)) != NULL &&
      (key = tavlo_public_key(argv[2], &error)) != NULL &&
      (selfie = tavlo_image_decode(picture, length, &error)) != NULL &&
      (body = tavlo_build(model, selfie, tavlo_data_bytes(key), tavlo_data_length(key), &error)) != NULL) {
    status = postAndWait(body, argv[4]);
  } else {
    fprintf(stderr, "%s\n", tavlo_error_message(error));
  }

  tavlo_data_free(body);
  tavlo_data_free(key);
  tavlo_image_free(selfie);
  tavlo_model_free(model);
  tavlo_error_free(error);
  free(picture);
  return status;
}
