import type { Json, JsonObject } from "./json";

/** A call to the platform, or a callback from it ("event"), as the tap reports it. Times are in microseconds. */
export interface TapLine {
  t: number;
  thread: number;
  call?: string;
  event?: string;
  in?: JsonObject;
  out?: JsonObject;
  ret?: Json;
  duration?: number;
}
