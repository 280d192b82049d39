import { useSignal } from "@preact/signals";
import type { FunctionComponent, RefObject } from "preact";
import { useEffect, useMemo, useRef } from "preact/hooks";
import { lengthText, sizeText } from "../../lib/measures";
import { localDateText } from "../../app/set-clock";
import { FileIcon, FolderIcon, InfoIcon, MusicIcon, PhotoIcon, PlaylistIcon, StarIcon, VideoIcon } from "../../ui/icons";
import { RowList, type RowListHandle } from "../../ui/row-list";
import { sendPhoto, sendPlayer } from "../player/player";
import { chosen, grid, listing, openFolder, toggleFavourite, type Entry, type Kind } from "./media";
import { seeThumbnail, thumbnailOf } from "./thumbnails";
import { label } from "./words";
import "../../ui/files.css";

const icons: Readonly<Record<Kind, FunctionComponent>> = {
  folder: FolderIcon,
  photo: PhotoIcon,
  music: MusicIcon,
  video: VideoIcon,
  playlist: PlaylistIcon,
};

export const kindNames = {
  folder: "IDS_FOLDER",
  photo: "IDS_PHOTO",
  music: "IDS_MUSIC",
  video: "IDS_VIDEO",
  playlist: "IDS_PLAYLIST",
} as const;

const rowHeight = 57;
const tileHeight = 150;
const tileWidth = 172;

export const titleOf = ({ title, name }: Entry): string => title || name;

/** Enters a folder, shows a photo, plays everything else. */
export function open(entry: Entry) {
  if (entry.kind === "folder") openFolder(entry.path);
  else if (entry.kind === "photo") void sendPhoto("show", entry.path);
  else void sendPlayer("play", entry.path);
}

/** What a viewer wants to know beside the title. */
export function about({ kind, artist, album, year, width, height, date }: Entry): string {
  const size = width && height ? `${width} × ${height}` : "";
  const day = date ? localDateText(date) : "";
  const facts = kind === "photo" ? [size, day] : kind === "video" ? [artist, size, year] : [artist, album, year];
  return facts.filter(Boolean).join(" · ");
}

interface EntryListProps {
  handle: RefObject<RowListHandle | null>;
  /** The search field above the list. */
  input: RefObject<HTMLInputElement | null>;
}

/** The list of the folder, kind or search that is chosen, as rows or as tiles. */
export function EntryList({ handle, input }: EntryListProps) {
  const box = useRef<HTMLDivElement>(null);
  const columns = useSignal(1);
  const tiles = grid.value;
  const opened = listing.value;
  const total = opened?.total.value ?? null;

  useEffect(() => {
    const element = box.current;
    if (!element || !tiles) return;
    const fit = () => (columns.value = Math.max(2, Math.floor(element.clientWidth / tileWidth)));
    const observer = new ResizeObserver(fit);
    observer.observe(element);
    fit();
    return () => observer.disconnect();
  }, [tiles]);

  const inRow = tiles ? columns.value : 1;
  const count = Math.ceil((total ?? 0) / inRow);
  const rows = useMemo(() => Array.from({ length: count }, (_, row) => row), [count]);
  return (
    <div ref={box} class="media-list" data-tiles={tiles}>
      {total !== null && (
        <RowList
          key={inRow}
          rows={rows}
          keyOf={(row) => row}
          estimate={tiles ? tileHeight : rowHeight}
          cells={tiles}
          label={label("IDS_MEDIA")}
          handle={handle}
          onLeave={() => input.current?.focus()}
          empty={label("IDS_LIST_EMPTY")}
          render={(row, tabIndex) =>
            tiles ? (
              <div class="media-tiles" style={{ gridTemplateColumns: `repeat(${inRow}, minmax(0, 1fr))` }}>
                {Array.from({ length: Math.min(inRow, total - row * inRow) }, (_, column) => (
                  <Tile key={column} index={row * inRow + column} tabIndex={column === 0 ? tabIndex : -1} />
                ))}
              </div>
            ) : (
              <Row index={row} tabIndex={tabIndex} />
            )
          }
        />
      )}
    </div>
  );
}

interface CellProps {
  index: number;
  tabIndex: 0 | -1;
}

/** The entry of a rendered row, which is kept loaded; undefined until it has been read. */
function useEntry(index: number): Entry | undefined {
  const opened = listing.value;
  void opened?.version.value;
  useEffect(() => opened?.hold(index), [opened, index]);
  return opened?.at(index);
}

function choose(entry: Entry) {
  chosen.value = chosen.peek()?.path === entry.path ? null : entry;
}

/** The key "i" opens the details of the entry that has the focus. */
function detailsKey(event: KeyboardEvent, entry: Entry | undefined) {
  if (event.key !== "i" || !entry || event.ctrlKey || event.metaKey || event.altKey) return;
  event.preventDefault();
  choose(entry);
}

const lengthOf = ({ duration }: Entry): string => (duration ? lengthText(duration) : "");
const sizeOf = ({ kind, size }: Entry): string => (kind !== "folder" && size ? sizeText(size) : "");

/** A button's name says what is seen on it, in that order, and then what the picture says. */
const nameOfEntry = (entry: Entry): string =>
  [titleOf(entry), about(entry), lengthOf(entry), sizeOf(entry), label(kindNames[entry.kind])].filter(Boolean).join(", ");

/** Rows that wait for their entry keep their height and their focus. */
function Row({ index, tabIndex }: CellProps) {
  const entry = useEntry(index);
  return (
    <div class="media-row" data-kind={entry?.kind} data-path={entry?.path} data-chosen={entry && chosen.value?.path === entry.path}>
      <button
        type="button"
        class="file-open"
        tabIndex={tabIndex}
        aria-label={entry ? nameOfEntry(entry) : String(index + 1)}
        aria-busy={!entry}
        onKeyDown={(event) => detailsKey(event, entry)}
        onClick={() => entry && open(entry)}
      >
        {entry && (
          <>
            <Picture entry={entry} />
            <span class="file-text">
              <span class="file-title" dir="auto">
                {titleOf(entry)}
              </span>{" "}
              <span class="file-about quiet" dir="auto">
                {about(entry)}
              </span>
            </span>{" "}
            <span class="file-length">{lengthOf(entry)}</span>{" "}
            <span class="file-size quiet">{sizeOf(entry)}</span>
          </>
        )}
      </button>
      {entry && (
        <>
          <button
            type="button"
            class="icon-button star"
            tabIndex={tabIndex}
            aria-pressed={entry.favourite === true}
            aria-label={`${label("IDS_FAVOURITE")}: ${titleOf(entry)}`}
            title={label("IDS_FAVOURITE")}
            disabled={entry.kind === "folder"}
            onClick={() => void toggleFavourite(entry)}
          >
            <StarIcon filled={entry.favourite === true} />
          </button>
          <DetailsButton entry={entry} tabIndex={tabIndex} />
        </>
      )}
    </div>
  );
}

const DetailsButton = ({ entry, tabIndex }: { entry: Entry; tabIndex: 0 | -1 }) => (
  <button
    type="button"
    class="icon-button media-info"
    tabIndex={tabIndex}
    aria-expanded={chosen.value?.path === entry.path}
    aria-label={`${label("IDS_DETAILS")}: ${titleOf(entry)}`}
    title={`${label("IDS_DETAILS")} (i)`}
    onClick={() => choose(entry)}
  >
    <InfoIcon />
  </button>
);

function Tile({ index, tabIndex }: CellProps) {
  const entry = useEntry(index);
  return (
    <div class="media-tile" data-kind={entry?.kind} data-path={entry?.path}>
      <button
        type="button"
        class="file-open"
        data-cell
        tabIndex={tabIndex}
        aria-label={entry ? nameOfEntry(entry) : String(index + 1)}
        aria-busy={!entry}
        aria-keyshortcuts="i"
        onKeyDown={(event) => detailsKey(event, entry)}
        onClick={() => entry && open(entry)}
      >
        {entry ? <Picture entry={entry} /> : <span class="media-picture" />}
        <span class="file-title" dir="auto">
          {entry ? titleOf(entry) : " "}
        </span>
      </button>
      {entry?.favourite && (
        <span class="media-mark" role="img" aria-label={label("IDS_FAVOURITE")}>
          <StarIcon filled />
        </span>
      )}
      {entry && <DetailsButton entry={entry} tabIndex={-1} />}
    </div>
  );
}

/** The entry's small picture; until there is one, and where there can be none, its kind. */
function Picture({ entry: { path, kind } }: { entry: Entry }) {
  const Icon = icons[kind] ?? FileIcon;
  const has = kind === "photo" || kind === "video" || kind === "music";
  const address = has ? thumbnailOf(path) : "";
  useEffect(() => (has ? seeThumbnail(path) : undefined), [path, has]);
  return (
    <span class="media-picture" aria-hidden="true">
      {address ? <img src={address} alt="" decoding="async" draggable={false} /> : <Icon />}
    </span>
  );
}
