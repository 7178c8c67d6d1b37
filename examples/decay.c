/* Lets a flow decay and prints its figures.
 *
 *   decay [PICTURE.png]
 *
 * Requests and replies are JSON. A program of your own would read the replies with the JSON library
 * that it has anyway; this one looks for single numbers.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zephane.h>

static const char* const configuration =
    "{\"resolution\":128,\"reynolds\":3000,\"seed\":\"7\",\"integrator\":\"etdrk4\"}";

/* A reply that begins so has failed; the reason follows. */
static const char error_key[] = "{\"error\":";

/* The number under a key of a reply, or NaN where there is none. */
static double number(const char* reply, const char* key) {
  char quoted[64];
  snprintf(quoted, sizeof quoted, "\"%s\":", key);
  const char* found = strstr(reply, quoted);
  char* end = NULL;
  double value = found ? strtod(found + strlen(quoted), &end) : NAN;
  return found && end != found + strlen(quoted) ? value : NAN;
}

/* The library's reply, which the caller frees with zp_string_free(). Ends the program if it is a
 * failure. */
static char* call(zp_engine* engine, const char* request) {
  char* reply = zp_engine_call(engine, request);
  if (!reply || strncmp(reply, error_key, strlen(error_key)) == 0) {
    fprintf(stderr, "%s failed: %s\n", request, reply ? reply : "out of memory");
    exit(EXIT_FAILURE);
  }
  return reply;
}

static void print_figures(zp_engine* engine) {
  char* figures = call(engine, "{\"op\":\"inspect\"}");
  printf("%6.2f %7.0f %10.6f %10.4f %12.2f\n", number(figures, "simulation_time"),
         number(figures, "steps"), number(figures, "energy"), number(figures, "enstrophy"),
         number(figures, "palinstrophy"));
  zp_string_free(figures);
}

static void draw(zp_engine* engine, const char* path) {
  char request[4096];
  if (strpbrk(path, "\"\\") || strlen(path) > sizeof request - 64) {
    fprintf(stderr, "This example does not quote a path like %s\n", path);
    exit(EXIT_FAILURE);
  }
  snprintf(request, sizeof request, "{\"op\":\"export\",\"png\":\"%s\",\"pixel_size\":600}", path);
  zp_string_free(call(engine, request));
  printf("The vorticity is drawn in %s\n", path);
}

int main(int count, char** arguments) {
  /* Chooses the device. Without it the first engine takes device 0. */
  char* description = zp_initialize();
  if (!description || strncmp(description, error_key, strlen(error_key)) == 0) {
    fprintf(stderr, "No device: %s\n", description ? description : "out of memory");
    return EXIT_FAILURE;
  }
  zp_string_free(description);

  char* error = NULL;
  zp_engine* engine = zp_engine_create(configuration, &error);
  if (!engine) {
    fprintf(stderr, "No engine: %s\n", error ? error : "out of memory");
    zp_string_free(error);
    return EXIT_FAILURE;
  }

  printf("  time   steps     energy  enstrophy palinstrophy\n");
  print_figures(engine);
  for (int half = 1; half <= 8; ++half) {
    /* So many steps at most, but to this time exactly. */
    char request[96];
    snprintf(request, sizeof request, "{\"op\":\"advance\",\"steps\":100000,\"until\":%.1f}",
             0.5 * half);
    zp_string_free(call(engine, request));
    print_figures(engine);
  }
  if (count > 1) {
    draw(engine, arguments[1]);
  }
  zp_engine_destroy(engine);
  return EXIT_SUCCESS;
}
