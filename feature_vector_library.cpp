// The library's front door: link, unlink, and one font folder to one vector
// line. Rendering runs under a POSIX named semaphore because the renderer's
// state is process-wide; measuring runs outside it.
#include "feature_vector_library.h"

#include <fcntl.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/orvextxt.h"
#include "feature_vector_core.h"

extern "C" {
char _process_id[4096];
char _config_path[4096];
sem_t* _named_semaphore_Orvex = NULL;
}

// Copies an argument into one of the 4096-byte name buffers, cut to fit.
static void keepName(char* target, const char* value) {
  snprintf(target, 4096, "%s", value);
}

extern "C" int link_library(const char* process_id, const char* config_path) {
  if (process_id == NULL || config_path == NULL || process_id[0] == '\0' ||
      config_path[0] == '\0')
    return -4;
  if (_named_semaphore_Orvex != NULL) return -1;
  keepName(_process_id, process_id);
  keepName(_config_path, config_path);
  // Clears a semaphore left behind by a host that died while linked.
  sem_unlink(process_id);
  sem_t* sem = sem_open(process_id, O_CREAT, 0644, 1);
  if (sem == SEM_FAILED || sem == NULL) {
    perror("named semaphore initialization error");
    return -3;
  }
  _named_semaphore_Orvex = sem;
  return 0;
}

extern "C" int unlink_library(void) {
  if (_named_semaphore_Orvex == NULL) return -2;
  sem_close(_named_semaphore_Orvex);
  sem_unlink(_process_id);
  _named_semaphore_Orvex = NULL;
  _process_id[0] = '\0';
  _config_path[0] = '\0';
  return 0;
}

extern "C" int create_feature_vector(const char* font_path, char* result) {
  if (font_path == NULL || font_path[0] == '\0') return -4;
  char* features = NULL;
  if (_named_semaphore_Orvex == NULL) return -3;

  double std_deviation = 0.0;
  sem_wait(_named_semaphore_Orvex);
  int is_not_valid =
      create_images_from_font(_config_path, font_path, &std_deviation);
  sem_post(_named_semaphore_Orvex);

  // 1 is the good answer: the renderer validates the font folder itself,
  // where no pictures are written, so a normal run finds all of them missing.
  if (is_not_valid == 1) {
    char temp_images_path[4096];
    memset(temp_images_path, 0, sizeof temp_images_path);
    snprintf(temp_images_path, sizeof temp_images_path, "%s/Images/",
             font_path);
    // The advance spread stdDevAdv: the one number that crosses from the
    // renderer to the measurements, as value 47 of the vector.
    features = getFeatureVector(temp_images_path, 0, std_deviation);
  }

  if (features != NULL) {
    snprintf(result, FEATURE_VECTOR_TEXT_SIZE, "%s", features);
    free(features);
  } else {
    strcpy(result, "Error=-1");
  }
  if (features == NULL || strstr(result, "Error") != NULL) return -5;
  return 0;
}
