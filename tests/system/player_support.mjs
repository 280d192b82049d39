// An application's media players: the numbers of the television's contract, and a client that opens and drives them.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { uri } from './media_support.mjs';

export const events = '/tv/ws/notify/cbrowser_playback';
// The numbers of the television's contract.
export const event = { opened: 1, playing: 2, paused: 3, stopped: 4, end: 5, error: 6, position: 7, sought: 8, tracks: 10, size: 11, speed: 12, chapter: 13, thumbnail: 19, noThumbnail: 20 };
export const code = { invalidHandle: -2, notReady: -9, badArgument: -10, unsupported: -11, file: -12, format: -13, network: -14, removed: -15 };
export const unknown = -3;
export const actionFailed = 9;
export const metadata = { title: 1, artist: 2, album: 3, genre: 4, year: 5, director: 9, chapter: 11 };
export const type = { video: 1, music: 2 };

// A client that has players: open() makes one of a file and waits for it.
export async function playerClient(t, set) {
  const client = await set.client(t);
  const stick = await client.stick('Films and music');
  await client.subscribe(events);
  const player = (handle, tag) => {
    const act = (operator, more) => client.set(uri('playback_operator'), { handle, operator, ...more });
    const told = (kind, wanted) => client.notified(events, { TYPE: kind, TAG: tag, ...wanted });
    const ask = (operator, more) => client.item(uri('playback_get_info'), { handle, operator, ...more });
    return {
      handle,
      tag,
      act,
      ask,
      told,
      refuses: (operator, wanted, more) => client.refused(uri('playback_operator'), { handle, operator, ...more }, wanted),
      failsToTell: async (operator, wanted, more) => assert.equal((await client.get(uri('playback_get_info'), { REQUEST: 'QUERY', handle, operator, ...more })).ret, wanted, operator),
      seek: async (time) => {
        await act('timeSeek', { seek_time: time });
        await told(event.sought, { ARG1: time });
      },
      time: async () => (await ask('getcurpos')).curplaytime,
      end: () => client.set(uri('playback_deinit'), { handle }),
    };
  };
  let tag = 500;
  const init = async (path, more) => {
    ++tag;
    const { handle, pvTag } = await client.item(uri('playback_init'), { mediaPath: path.includes('/') ? path : join(stick, 'Films', path), pvTag: tag, ...more });
    assert.ok(handle > 0);
    assert.equal(pvTag, tag);
    return player(handle, tag);
  };
  return {
    ...client,
    path: (name) => join(stick, name),
    player,
    init,
    open: async (path) => {
      const made = await init(path);
      await made.told(event.opened);
      return made;
    },
    // Why a file cannot be opened: the status of the init, or the code of the event that follows.
    reason: async (path) => {
      ++tag;
      const { ret, response } = await client.get(uri('playback_init'), { REQUEST: 'QUERY', mediaPath: path, pvTag: tag });
      const made = player(response.ITEMS[0].handle, tag);
      if (ret !== 0) {
        if (made.handle !== 0) await made.end(); // it was created, and its file is not open
        return ret;
      }
      for (;;) {
        const { TYPE: told, ARG1: why } = await client.notified(events, { TAG: tag });
        assert.notEqual(told, event.opened, `${path} has been opened`);
        if (told !== event.error) continue;
        await made.end();
        return why;
      }
    },
  };
}
