#include "context/rs232_context.h"

std::atomic<int32_t> g_rs232_stop = 0;
int g_rs232_stop_event = -1;
Rs232Settings g_rs232_settings = {};
Rs232Context g_rs232_context = {};
