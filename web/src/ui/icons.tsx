import type { ComponentChildren } from "preact";

// Line icons of 20 by 20 units in the colour of the text.
const line = (children: ComponentChildren) => (
  <svg
    class="icon"
    viewBox="0 0 20 20"
    width="18"
    height="18"
    fill="none"
    stroke="currentColor"
    stroke-width="1.6"
    stroke-linecap="round"
    stroke-linejoin="round"
    aria-hidden="true"
  >
    {children}
  </svg>
);

const horn = <path d="M3 8v4h3l4 3.5v-11L6 8z" />;

export const SpeakerIcon = () => line(<>{horn}<path d="M13 7.5a3.5 3.5 0 0 1 0 5M15.2 5a7 7 0 0 1 0 10" /></>);
export const MutedIcon = () => line(<>{horn}<path d="m13.5 8 4 4m0-4-4 4" /></>);
export const PlusIcon = () => line(<path d="M10 4.5v11M4.5 10h11" />);
export const UpIcon = () => line(<path d="m4.5 12.5 5.5-6 5.5 6" />);
export const DownIcon = () => line(<path d="m4.5 7.5 5.5 6 5.5-6" />);
export const LeftIcon = () => line(<path d="m12.5 4.5-6 5.5 6 5.5" />);
export const RightIcon = () => line(<path d="m7.5 4.5 6 5.5-6 5.5" />);
export const FastLeftIcon = () => line(<path d="M9.5 4.5 4 10l5.5 5.5M16 4.5 10.5 10l5.5 5.5" />);
export const FastRightIcon = () => line(<path d="m4 4.5 5.5 5.5L4 15.5M10.5 4.5 16 10l-5.5 5.5" />);
export const SlidersIcon = () => line(<path d="M3 6h7m4 0h3M3 14h3m4 0h7M10 4v4M6 12v4" />);
export const RemoteIcon = () => line(<><rect x="6" y="2.5" width="8" height="15" rx="2.2" /><path d="M10 6h.01M8.7 10h.01M11.3 10h.01M8.7 13h.01M11.3 13h.01" /></>);
export const ScreenIcon = () => line(<><rect x="2.5" y="4" width="15" height="10" rx="1.6" /><path d="M7 17h6" /></>);
export const SetIcon = () => line(<><rect x="2.5" y="4" width="15" height="10" rx="1.6" /><path d="M7 17h6M6 11l2.5-3 2.5 2 3-3.5" /></>);
export const SearchIcon = () => line(<><circle cx="8.7" cy="8.7" r="5" /><path d="m12.6 12.6 4 4" /></>);
export const ListIcon = () => line(<path d="M7 5h10M7 10h10M7 15h10M3 5h.01M3 10h.01M3 15h.01" />);
export const SendIcon = () => line(<path d="m3.5 10 13-6-4 13-3-5.5z" />);
export const PulseIcon = () => line(<path d="M2.5 10.5h3.4l2-5.5 3.6 10 2.1-4.5h3.9" />);
export const BellIcon = () => line(<path d="M5 14V9a5 5 0 0 1 10 0v5l1.2 1.2H3.8zM8.5 17.3h3" />);
export const BellOnIcon = () => (
  <svg class="icon" viewBox="0 0 20 20" width="18" height="18" fill="currentColor" aria-hidden="true">
    <path d="M10 3a5.8 5.8 0 0 0-5.8 5.8v4.8l-1.3 1.5c-.4.4-.1 1.1.5 1.1h13.2c.6 0 .9-.7.5-1.1l-1.3-1.5V8.8A5.8 5.8 0 0 0 10 3zM8 17.2a2 2 0 0 0 4 0z" />
  </svg>
);
export const CopyIcon = () =>
  line(<><rect x="7.5" y="7.5" width="9" height="9" rx="1.8" /><path d="M12.5 4.8A1.5 1.5 0 0 0 11.2 3.5H5A1.5 1.5 0 0 0 3.5 5v6.2a1.5 1.5 0 0 0 1.3 1.3" /></>);
export const CheckIcon = () => line(<path d="m4 10.5 4 4 8-9" />);
export const PauseIcon = () => line(<path d="M7 5v10M13 5v10" />);
export const PlayIcon = () => line(<path d="m6.5 4.5 9 5.5-9 5.5z" />);
export const ClearIcon = () => line(<path d="M4 6h12M8 6V4h4v2m2.5 0-.7 10H6.2L5.5 6" />);
export const EjectIcon = () => line(<path d="m10 4.5 5.5 6.5h-11zM4.5 15.5h11" />);
export const ChannelsIcon = () => line(<><rect x="2.5" y="6" width="15" height="10" rx="1.6" /><path d="m6.5 2.5 3.5 3.5 3.5-3.5M5.5 9.5h5M5.5 12.5h3" /></>);
export const GuideIcon = () => line(<><rect x="3" y="4" width="14" height="13" rx="1.6" /><path d="M3 8h14M7 2.5V5M13 2.5V5M7 11h2.5M11.5 14H14" /></>);
export const AntennaIcon = () => line(<path d="M10 9.5V17M7 17h6M6.8 12.7a4.5 4.5 0 0 1 0-6.4M13.2 6.3a4.5 4.5 0 0 1 0 6.4M4.3 15.2a8 8 0 0 1 0-11.4M15.7 3.8a8 8 0 0 1 0 11.4M10 9.5h.01" />);
export const RecordIcon = () => line(<><circle cx="10" cy="10" r="7" /><circle cx="10" cy="10" r="3" fill="currentColor" /></>);
export const FaultIcon = () => line(<><path d="M10 3 2.8 16h14.4z" /><path d="M10 8v4M10 14h.01" /></>);
export const StopIcon = () => line(<rect x="5" y="5" width="10" height="10" rx="1" />);
export const EditIcon = () => line(<path d="m4 16 .8-3.4 8.3-8.3 2.6 2.6-8.3 8.3zM11.5 5.9l2.6 2.6" />);
export const StarIcon = ({ filled }: { filled: boolean }) =>
  line(<path d="m10 2.8 2.2 4.6 5 .7-3.6 3.5.9 5-4.5-2.4-4.5 2.4.9-5-3.6-3.5 5-.7z" fill={filled ? "currentColor" : "none"} />);
export const LockIcon = ({ closed }: { closed: boolean }) =>
  line(<><rect x="4.5" y="9" width="11" height="8" rx="1.6" /><path d={closed ? "M7 9V6.5a3 3 0 0 1 6 0V9" : "M7 9V6a3 3 0 0 1 5.8-1"} /></>);
export const MediaIcon = () => line(<><rect x="2.5" y="4" width="15" height="12" rx="1.6" /><path d="m8.5 7.5 4 2.5-4 2.5z" /></>);
export const HomeNetworkIcon = () => line(<path d="M3 9.5 10 4l7 5.5M5 8.5V16h10V8.5M7.8 13.2a3 3 0 0 1 4.4 0M10 14.5h.01" />);
export const FolderIcon = () => line(<path d="M2.5 6.5A1.5 1.5 0 0 1 4 5h3.5l1.8 2H16a1.5 1.5 0 0 1 1.5 1.5v5.5a1.5 1.5 0 0 1-1.5 1.5H4A1.5 1.5 0 0 1 2.5 14z" />);
export const PhotoIcon = () => line(<><rect x="2.5" y="4" width="15" height="12" rx="1.6" /><circle cx="7" cy="8.2" r="1.3" /><path d="m4.5 14 4-3.5 2.5 2 2.5-3 2.5 4" /></>);
export const MusicIcon = () => line(<><path d="M7.5 14.5V5l8-1.5v9" /><circle cx="5.5" cy="14.5" r="2" /><circle cx="13.5" cy="12.5" r="2" /></>);
export const VideoIcon = () => line(<><rect x="2.5" y="4.5" width="15" height="11" rx="1.4" /><path d="M6 4.5v11M14 4.5v11M2.5 8H6M2.5 12H6M14 8h3.5M14 12h3.5" /></>);
export const PlaylistIcon = () => line(<path d="M3 5.5h9M3 9.5h9M3 13.5h5M11.5 12v5l4-2.5z" />);
export const FileIcon = () => line(<path d="M5.5 2.5h6l3.5 3.5v11.5h-9.5zM11.5 2.5V6H15" />);
export const StickIcon = () => line(<path d="M6 8.5h8v8a1.5 1.5 0 0 1-1.5 1.5h-5A1.5 1.5 0 0 1 6 16.5zM7.5 8.5V3h5v5.5M9 5.5h.01M11 5.5h.01" />);
export const GridIcon = () => line(<><rect x="3" y="3" width="5.8" height="5.8" rx="1" /><rect x="11.2" y="3" width="5.8" height="5.8" rx="1" /><rect x="3" y="11.2" width="5.8" height="5.8" rx="1" /><rect x="11.2" y="11.2" width="5.8" height="5.8" rx="1" /></>);
export const InfoIcon = () => line(<><circle cx="10" cy="10" r="7.2" /><path d="M10 9v4.5M10 6.3h.01" /></>);
export const NextIcon = () => line(<path d="m5 4.5 8 5.5-8 5.5zM15.5 4.5v11" />);
export const PreviousIcon = () => line(<path d="m15 4.5-8 5.5 8 5.5zM4.5 4.5v11" />);
export const RotateIcon = () => line(<path d="M15.8 8A6.3 6.3 0 1 0 16 12M16 4v4h-4" />);
export const MinusIcon = () => line(<path d="M4.5 10h11" />);
export const DownloadIcon = () => line(<path d="M10 3.5v9M6 9l4 4 4-4M4 16.5h12" />);
export const ServerIcon = () => line(<><rect x="3" y="3.5" width="14" height="5.5" rx="1.3" /><rect x="3" y="11" width="14" height="5.5" rx="1.3" /><path d="M6 6.2h.01M6 13.8h.01" /></>);
export const RefreshIcon = () => line(<path d="M4 10a6 6 0 0 1 10.3-4.2L16 7.5M16 4v3.5h-3.5M16 10a6 6 0 0 1-10.3 4.2L4 12.5M4 16v-3.5h3.5" />);
export const SystemThemeIcon = () => line(<><circle cx="10" cy="10" r="6.5" /><path d="M10 3.5a6.5 6.5 0 0 1 0 13z" fill="currentColor" /></>);
export const LightThemeIcon = () => line(<><circle cx="10" cy="10" r="3.4" /><path d="M10 2.2v2M10 15.8v2M2.2 10h2M15.8 10h2M4.5 4.5l1.4 1.4M14.1 14.1l1.4 1.4M4.5 15.5l1.4-1.4M14.1 5.9l1.4-1.4" /></>);
export const DarkThemeIcon = () => line(<path d="M16.5 12A7 7 0 0 1 8 3.5 7 7 0 1 0 16.5 12z" />);
