import { useEffect, useRef } from "preact/hooks";
import { AccessNotice } from "../../app/access-notice";
import { usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { readClock } from "../../app/set-clock";
import { Breadcrumbs } from "../../ui/breadcrumbs";
import { GridIcon, ListIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import type { RowListHandle } from "../../ui/row-list";
import { SearchField } from "../../ui/search-field";
import { NowPlaying } from "../player/now-playing";
import { Details } from "./details";
import { EntryList } from "./entry-list";
import {
  chosen,
  folder,
  folderPath,
  grid,
  listing,
  openFolder,
  openListing,
  parentFolder,
  pauseMs,
  problem,
  readSticks,
  search,
  shown,
  sort,
  sorts,
  stickOf,
  sticks,
  type Shown,
  type Sort,
} from "./media";
import { Sticks } from "./sticks";
import { label } from "./words";
import "./media.css";

type LabelId = Parameters<typeof label>[0];

const kindNames: Readonly<Record<Shown, LabelId>> = {
  all: "IDS_FOLDERS",
  photo: "IDS_PHOTOS",
  music: "IDS_MUSIC",
  video: "IDS_VIDEOS",
  playlist: "IDS_PLAYLISTS",
};

const sortNames: Readonly<Record<Sort, LabelId>> = {
  name: "IDS_NAME",
  date: "IDS_DATE",
  size: "IDS_SIZE",
  artist: "IDS_ARTIST",
  album: "IDS_ALBUM",
};

const views = [
  { tiles: false, name: "IDS_LIST", icon: ListIcon },
  { tiles: true, name: "IDS_GRID", icon: GridIcon },
] as const;

/** A typed text is searched for when so much time has passed without another letter. */
const typingMs = 250;

export function MediaPanel() {
  const readProblem = usePolling(readSticks, pauseMs);
  const input = useRef<HTMLInputElement>(null);
  const handle = useRef<RowListHandle>(null);
  const place = folder.value;
  const kind = shown.value;
  const order = sort.value;
  const text = search.value.trim();

  useEffect(() => {
    void readClock().catch(() => undefined); // without it, dates are shown in the browser's zone
  }, []);

  useEffect(() => {
    if (!place) return;
    let close = () => {};
    const timer = setTimeout(() => (close = openListing(place, kind, order, text)), text ? typingMs : 0);
    return () => {
      clearTimeout(timer);
      close();
    };
  }, [place, kind, order, text]);

  function keyPressed(event: KeyboardEvent) {
    if (event.key === "ArrowDown" && event.target === input.current) {
      event.preventDefault();
      handle.current?.focus(0);
      return;
    }
    if (event.key !== "Escape" || (event.target as HTMLElement).closest("form, .now-playing")) return;
    // The search field clears itself.
    if (event.target === input.current) return;
    event.preventDefault();
    const parent = parentFolder();
    if (chosen.value) chosen.value = null;
    else if (search.value) search.value = "";
    else if (parent !== null) openFolder(parent);
  }

  const stick = stickOf(place);
  const failed = problem.value || readProblem.value || listing.value?.problem.value || "";
  return (
    <main class="panel media" aria-label={label("IDS_MEDIA")} onKeyDown={keyPressed}>
      <div class="media-head">
        <h1>{label("IDS_MEDIA")}</h1>
        <AccessNotice when="look" />
        {access.value === "control" && sticks.value && (
          <>
            <Sticks known={sticks.value} />
            {stick && (
              <div class="media-tools">
                <div class="segments small" role="group" aria-label={label("IDS_KIND")}>
                  {(Object.keys(kindNames) as Shown[]).map((each) => (
                    <button type="button" key={each} aria-pressed={kind === each} onClick={() => (shown.value = each)}>
                      {label(kindNames[each])}
                    </button>
                  ))}
                </div>
                <SearchField
                  text={search}
                  label={label("IDS_SEARCH")}
                  placeholder={label("IDS_SEARCH")}
                  input={input}
                />
                <label class="media-sort">
                  <span class="quiet">{label("IDS_SORT")}</span>
                  <select
                    class="select"
                    aria-label={label("IDS_SORT")}
                    value={order}
                    disabled={text !== ""}
                    onChange={(event) => (sort.value = event.currentTarget.value as Sort)}
                  >
                    {sorts.map((each) => (
                      <option key={each} value={each}>
                        {label(sortNames[each])}
                      </option>
                    ))}
                  </select>
                </label>
                <div class="segments small media-view" role="group" aria-label={label("IDS_VIEW")}>
                  {views.map(({ tiles, name, icon: Icon }) => (
                    <button
                      type="button"
                      key={name}
                      aria-label={label(name)}
                      aria-pressed={grid.value === tiles}
                      title={label(name)}
                      onClick={() => (grid.value = tiles)}
                    >
                      <Icon />
                    </button>
                  ))}
                </div>
              </div>
            )}
            {stick && (
              <Breadcrumbs
                label={label("IDS_FOLDER")}
                path={folderPath()}
                away={text !== ""}
                total={listing.value?.total.value ?? null}
                onOpen={openFolder}
              />
            )}
          </>
        )}
        <Problem text={failed} />
      </div>
      {access.value === "control" && stick && (
        <EntryList key={`${place}\n${kind}\n${order}\n${text}\n${grid.value}`} handle={handle} input={input} />
      )}
      {chosen.value && <Details entry={chosen.value} />}
      <NowPlaying />
    </main>
  );
}
