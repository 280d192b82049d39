import { effect } from "@preact/signals";
import { connection, getItem, listen, setItem, tellError, volumeNotifyUri } from "../../app/session";
import { createVolume } from "./control";

/** The television's volume, as the page's volume control shows and sets it. */

const volumeUri = "/tv/cast/volume/volume";
const muteUri = "/tv/cast/volume/mute";

async function readNumber(uri: string): Promise<number> {
  const value = (await getItem(uri))["VALUE"];
  if (typeof value !== "number") throw new Error(`${uri} has no VALUE.`);
  return value;
}

const modify = (uri: string, value: number): Promise<void> => setItem(uri, { REQUEST: "MODIFY", VALUE: value });

export const volume = createVolume({
  async read() {
    const [level, mute] = await Promise.all([readNumber(volumeUri), readNumber(muteUri)]);
    return { volume: level, muted: mute !== 0 };
  },
  setVolume: (level) => modify(volumeUri, level),
  setMute: (muted) => modify(muteUri, muted ? 1 : 0),
  onError: tellError,
});

listen(volumeNotifyUri, ({ volValue, muteStatus }) => {
  if (typeof volValue === "number") volume.update({ volume: volValue, muted: muteStatus !== 0 });
});

effect(() => {
  const { name } = connection.value;
  if (name === "open") volume.refresh();
  else if (name === "waiting") volume.forget();
});
